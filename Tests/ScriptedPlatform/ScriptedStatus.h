#pragma once

#include <sys/types.h>

#include <atomic>
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

/// How many autorelease pools there have been, and how many there are.
struct PoolCounts {
  std::atomic<int> made = 0;
  std::atomic<int> open = 0;
};
PoolCounts& poolCounts();

}  // namespace tervain::test
