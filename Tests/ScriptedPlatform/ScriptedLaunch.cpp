#include "ScriptedPlatform/ScriptedLaunch.h"

#include <mutex>

#include "VMAgentCore/NeverDestroyed.h"

namespace tervain {
namespace {

std::mutex mutex;
// A launch that hung may still be under way when the process ends.
NeverDestroyed<test::ScriptedLaunch> current;

test::ScriptedLaunch scripted() {
  const std::lock_guard lock(mutex);
  return *current;
}

}  // namespace

void test::script(ScriptedLaunch launch) {
  const std::lock_guard lock(mutex);
  *current = std::move(launch);
}

namespace Platform {

std::optional<LaunchError> openApplicationAt(const std::string& path, Deadline) {
  return scripted().openAt(path);
}

std::variant<int, LaunchError> openApplicationNamed(const std::string& name) {
  return scripted().openNamed(name);
}

}  // namespace Platform
}  // namespace tervain
