#include "TervainVMAgent/Launching.h"

#include <unistd.h>

#include <exception>
#include <span>
#include <string_view>
#include <utility>
#include <variant>

#include "Platform/Workspace.h"
#include "TervainVMAgent/Errands.h"
#include "VMAgentCore/NeverDestroyed.h"

namespace tervain {
namespace {

constexpr std::string_view bundleSuffix = ".app";

Errands& launches() {
  static NeverDestroyed<Errands> errands;
  return *errands;
}

/// No path and no argument can hold such a name: the system would see another, shorter one.
bool holdsNul(const std::string& name) {
  return name.find('\0') != std::string::npos;
}

/// The bundle of an application in the first of the folders that has it.
std::optional<std::string> findBundle(const std::string& name,
                                      std::span<const std::string_view> folders) {
  if (holdsNul(name)) {
    return std::nullopt;
  }
  for (const std::string_view folder : folders) {
    std::string path = std::string(folder).append(name);
    if (!name.ends_with(bundleSuffix)) {
      path += bundleSuffix;
    }
    if (access(path.c_str(), F_OK) == 0) {
      return path;
    }
  }
  return std::nullopt;
}

std::string couldNotLaunch(const std::string& name, std::string_view description) {
  std::string error = "could not launch ";
  error.reserve(error.size() + name.size() + 2 + description.size());
  return error.append(name).append(": ").append(description);
}

/// Why it failed, if it did.
using Outcome = std::optional<Platform::LaunchError>;

Outcome open(const std::string& path, Deadline deadline) try {
  return Platform::openApplicationAt(path, deadline);
} catch (const std::exception& error) {
  return Platform::LaunchError{error.what()};
}

std::optional<std::string> openBundle(const std::string& name, const std::string& path,
                                      Deadline deadline) {
  auto errand = launches().begin(deadline);
  if (!errand) {
    return couldNotLaunch(name, "the system has not answered earlier launches yet");
  }
  const auto outcome =
      std::move(*errand).run<Outcome>([path, deadline] { return open(path, deadline); }, deadline);
  return outcome && *outcome ? std::optional(couldNotLaunch(name, (*outcome)->description))
                             : std::nullopt;
}

std::variant<int, Platform::LaunchError> statusOfOpening(const std::string& name) {
  constexpr int unknown = 1;  // as `open -a` exits when it finds no application of a name
  return holdsNul(name) ? unknown : Platform::openApplicationNamed(name);
}

std::optional<std::string> openNamed(const std::string& name) {
  const auto result = statusOfOpening(name);
  if (const auto* error = std::get_if<Platform::LaunchError>(&result)) {
    return couldNotLaunch(name, error->description);
  }
  const int status = std::get<int>(result);
  return status == 0 ? std::nullopt
                     : std::optional("no application named \"" + name + "\" (open -a exited " +
                                     std::to_string(status) + ")");
}

}  // namespace

std::optional<std::string> launchApplication(const std::string& name,
                                             const OperationSettings& settings) try {
  const auto bundle = findBundle(name, settings.applicationFolders);
  return bundle ? openBundle(name, *bundle, after(settings.launchLimit)) : openNamed(name);
} catch (const std::exception& error) {
  return couldNotLaunch(name, error.what());
}

}  // namespace tervain
