#include "ScriptedPlatform/ScriptedWorkspace.h"

#include "Platform/Workspace.h"

namespace tervain {

test::ScriptedWorkspace& test::scriptedWorkspace() {
  static ScriptedWorkspace workspace;
  return workspace;
}

namespace Platform {

std::optional<pid_t> frontmostApplication() {
  return test::scriptedWorkspace().frontmost;
}

std::optional<std::string> applicationName(pid_t pid) {
  const auto& names = test::scriptedWorkspace().names;
  const auto found = names.find(pid);
  return found == names.end() ? std::nullopt : std::optional(found->second);
}

}  // namespace Platform
}  // namespace tervain
