#pragma once

#include <optional>
#include <vector>

#include "Platform/Displays.h"
#include "Platform/Geometry.h"

namespace tervain::test {

/// What the scripted platform says of grants, displays and pointer.
struct ScriptedStatus {
  bool accessibility = true;
  bool screenRecording = true;
  bool postEvent = true;
  std::vector<Platform::Display> displays;
  std::optional<Platform::Point> pointer;
};

/// The script in force; a test sets it before it asks anything of the agent.
ScriptedStatus& scriptedStatus();

}  // namespace tervain::test
