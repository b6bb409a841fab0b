#pragma once

#include <sys/types.h>

#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Displays.h"
#include "Platform/Geometry.h"

namespace tervain::test {

/// What the scripted platform says of grants, displays, pointer and applications.
struct ScriptedStatus {
  bool accessibility = true;
  bool screenRecording = true;
  bool postEvent = true;
  std::vector<Platform::Display> displays;
  std::optional<Platform::Point> pointer;
  std::optional<pid_t> frontmost;
  std::map<pid_t, std::string> names;  ///< of applications
  void (*mainLoop)() = std::abort;     ///< of an agent that has started; never returns
};

/// The script in force; a test sets it before it asks anything of the agent.
ScriptedStatus& scriptedStatus();

}  // namespace tervain::test
