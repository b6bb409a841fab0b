#include <exception>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <variant>

#include "Platform/Displays.h"
#include "Platform/Pointer.h"
#include "Platform/Privacy.h"
#include "Platform/Workspace.h"
#include "TervainVMAgent/ConnectionHandler.h"
#include "TervainVMAgent/Errands.h"
#include "VMAgentCore/AgentWire.h"
#include "VMAgentCore/Rounding.h"

namespace tervain {
namespace {

/// How many displays a ping reports at the most.
constexpr std::size_t maxDisplays = 8;

Json describeDisplay(const Platform::Display& display) {
  return {{"id", display.id},
          {"width", display.width},
          {"height", display.height},
          {"main", display.isMain}};
}

constexpr std::string_view bundleSuffix = ".app";

/// Never destroyed: a launch may still be under way when the process ends.
Errands& launches() {
  static Errands& errands = *new Errands;
  return errands;
}

Reply couldNotLaunch(const std::string& name, std::string_view description) {
  return Reply::failure(
      std::string("could not launch ").append(name).append(": ").append(description));
}

/// No path and no argument can hold such a name: the system would see another, shorter one.
bool holdsNul(const std::string& name) {
  return name.find('\0') != std::string::npos;
}

/// The bundle of an application in the first of the folders that has it.
std::optional<std::string> findBundle(const std::string& name,
                                      std::span<const std::string_view> folders) {
  for (const std::string_view folder : folders) {
    std::string path = std::string(folder).append(name);
    if (!name.ends_with(bundleSuffix)) {
      path += bundleSuffix;
    }
    std::error_code error;
    if (std::filesystem::exists(path, error)) {
      return path;
    }
  }
  return std::nullopt;
}

/// Why it failed, if it did.
using Outcome = std::optional<Platform::LaunchError>;

Outcome open(const std::string& path, Deadline deadline) try {
  return Platform::openApplicationAt(path, deadline);
} catch (const std::exception& error) {
  return Platform::LaunchError{error.what()};
}

Reply openBundle(const std::string& name, const std::string& path,
                 std::chrono::milliseconds limit) {
  const Deadline deadline = Deadline::clock::now() + limit;
  auto errand = launches().begin(deadline);
  if (!errand) {
    return couldNotLaunch(name, "the system has not answered earlier launches yet");
  }
  const auto outcome =
      std::move(*errand).run<Outcome>([path, deadline] { return open(path, deadline); }, deadline);
  // A system that has not answered yet is taken to be launching still.
  return outcome && *outcome ? couldNotLaunch(name, (*outcome)->description) : Reply::success();
}

std::variant<int, Platform::LaunchError> statusOfOpening(const std::string& name) {
  constexpr int unknown = 1;  // as `open -a` exits when it finds no application of a name
  return holdsNul(name) ? unknown : Platform::openApplicationNamed(name);
}

Reply openNamed(const std::string& name) {
  const auto result = statusOfOpening(name);
  if (const auto* error = std::get_if<Platform::LaunchError>(&result)) {
    return couldNotLaunch(name, error->description);
  }
  const int status = std::get<int>(result);
  return status == 0 ? Reply::success()
                     : Reply::failure("no application named \"" + name + "\" (open -a exited " +
                                      std::to_string(status) + ")");
}

}  // namespace

Reply ConnectionHandler::opPing() {
  Json displays = Json::array();
  for (const Platform::Display& display : Platform::activeDisplays(maxDisplays)) {
    displays.push_back(describeDisplay(display));
  }
  // Member by member: an initializer list would first make an array of each pair.
  Json reply = Json::object();
  Json& readiness = reply["readiness"] = Json::object();
  readiness["accessibility"] = Platform::accessibilityGranted();
  readiness["screenRecording"] = Platform::screenRecordingGranted();
  readiness["postEvent"] = Platform::postEventGranted();
  reply["displays"] = std::move(displays);
  reply["version"] = AgentWire::version;
  reply["ok"] = true;
  return reply;
}

Reply ConnectionHandler::opCursorPosition() {
  const auto location = Platform::pointerLocation();
  if (!location) {
    return Reply::failure("could not read the cursor position (no event source)");
  }
  return Json{
      {"ok", true}, {"x", roundedToInteger(location->x)}, {"y", roundedToInteger(location->y)}};
}

Reply ConnectionHandler::opLaunchApp(const Json& request) const {
  const std::string* name = stringMember(request, "name");
  if (!name || name->empty()) {
    return Reply::failure("launch_app requires a non-empty \"name\"");
  }
  try {
    const auto bundle =
        holdsNul(*name) ? std::nullopt : findBundle(*name, settings_.applicationFolders);
    return bundle ? openBundle(*name, *bundle, settings_.launchLimit) : openNamed(*name);
  } catch (const std::exception& error) {
    return couldNotLaunch(*name, error.what());
  }
}

}  // namespace tervain
