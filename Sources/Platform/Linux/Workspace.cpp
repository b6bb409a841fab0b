#include "Platform/Workspace.h"

#include <fstream>

#include "Platform/Linux/Elements.h"
#include "Platform/Linux/Windows.h"

namespace tervain::Platform {
namespace {

/// How long an application is waited for to tell its name.
constexpr std::chrono::milliseconds nameLimit{500};

std::optional<std::string> accessibleName(pid_t pid) {
  auto* const connection = AccessibilityBus::Connection::ofThisThread();
  const auto root =
      connection ? AccessibilityBus::applicationOf(*connection, pid, nameLimit) : std::nullopt;
  if (!root) {
    return std::nullopt;
  }
  const auto answer = connection->askNow(
      connection->property(*root, "org.a11y.atspi.Accessible", "Name"), nameLimit);
  std::string name = answer.variantText();
  return name.empty() ? std::nullopt : std::optional(std::move(name));
}

/// The name of a process's program. Nothing once it has ended, even while nobody has reaped it.
std::optional<std::string> programName(pid_t pid) {
  // Number, name in brackets, state; the name may hold anything.
  std::string stat;
  std::getline(std::ifstream("/proc/" + std::to_string(pid) + "/stat"), stat, '\0');
  const std::size_t begin = stat.find('(') + 1;
  const std::size_t end = stat.rfind(')');
  if (end == std::string::npos || stat.compare(end, 3, ") Z") == 0 || end <= begin) {
    return std::nullopt;
  }
  return stat.substr(begin, end - begin);
}

}  // namespace

std::optional<pid_t> frontmostApplication() {
  auto x11 = X11::Session::open(X11::Clock::now() + X11::lookLimit);
  return x11 ? X11::activeProcess(*x11) : std::nullopt;
}

std::optional<std::string> applicationName(pid_t pid) {
  if (auto name = accessibleName(pid)) {
    return name;
  }
  return programName(pid);
}

}  // namespace tervain::Platform
