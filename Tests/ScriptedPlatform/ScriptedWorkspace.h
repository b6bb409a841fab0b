#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>

namespace tervain::test {

/// The applications of the scripted platform.
struct ScriptedWorkspace {
  std::optional<pid_t> frontmost;
  std::map<pid_t, std::string> names;
};

/// The script in force; a test sets it before it asks anything of the agent.
ScriptedWorkspace& scriptedWorkspace();

}  // namespace tervain::test
