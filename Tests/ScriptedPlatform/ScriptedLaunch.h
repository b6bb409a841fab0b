#pragma once

#include <functional>
#include <optional>
#include <string>
#include <variant>

#include "Platform/Workspace.h"

namespace tervain::test {

/// What the scripted platform does when it is asked to open an application. Its threads use a copy,
/// so a test may set the next script while they are still at work.
struct ScriptedLaunch {
  std::function<std::optional<Platform::LaunchError>(const std::string& path)> openAt;
  std::function<std::variant<int, Platform::LaunchError>(const std::string& name)> openNamed;
};

void script(ScriptedLaunch launch);

}  // namespace tervain::test
