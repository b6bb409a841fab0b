#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <variant>

#include "VMAgentCore/ResultBox.h"

/// The applications of the desktop.
namespace tervain::Platform {

/// The application that has the keyboard focus, if there is one.
std::optional<pid_t> frontmostApplication();

/// The localised name of a running application. Nothing when there is no such application or name.
std::optional<std::string> applicationName(pid_t pid);

/// Why an application could not be launched, in the system's words.
struct LaunchError {
  std::string description;
};

/// Opens the application bundle at a path and waits for the system's word on it. Nothing when it
/// worked, or when there is no word by the deadline. A service that hangs may hold the call longer,
/// or for good, so it belongs on a thread that nobody depends on.
std::optional<LaunchError> openApplicationAt(const std::string& path, Deadline deadline);

/// Has the system find an application by a name without NUL and open it, as `open -a` does. Gives
/// that command's exit status, 0 when it worked, or why it could not even be tried.
std::variant<int, LaunchError> openApplicationNamed(const std::string& name);

}  // namespace tervain::Platform
