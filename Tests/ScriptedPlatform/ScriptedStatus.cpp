#include "ScriptedPlatform/ScriptedStatus.h"

#include <algorithm>
#include <cstdlib>

#include "Platform/AutoreleasePool.h"
#include "Platform/Pointer.h"
#include "Platform/Privacy.h"
#include "Platform/Process.h"
#include "Platform/Workspace.h"

namespace tervain {

test::ScriptedStatus& test::scriptedStatus() {
  static ScriptedStatus status;
  return status;
}

test::PoolCounts& test::poolCounts() {
  static PoolCounts counts;
  return counts;
}

namespace Platform {

AutoreleasePool::AutoreleasePool() : pool_(&test::poolCounts()) {
  ++test::poolCounts().made;
  ++test::poolCounts().open;
}

AutoreleasePool::~AutoreleasePool() {
  --test::poolCounts().open;
}

bool accessibilityGranted() {
  return test::scriptedStatus().accessibility;
}

bool screenRecordingGranted() {
  return test::scriptedStatus().screenRecording;
}

bool postEventGranted() {
  return test::scriptedStatus().postEvent;
}

std::vector<Display> activeDisplays(std::size_t limit) {
  std::vector<Display> displays = test::scriptedStatus().displays;
  displays.resize(std::min(limit, displays.size()));
  return displays;
}

std::optional<Point> pointerLocation() {
  return test::scriptedStatus().pointer;
}

std::optional<pid_t> frontmostApplication() {
  return test::scriptedStatus().frontmost;
}

std::optional<std::string> applicationName(pid_t pid) {
  const auto& names = test::scriptedStatus().names;
  const auto found = names.find(pid);
  return found == names.end() ? std::nullopt : std::optional(found->second);
}

void prepareForThreads() {}

void runMainLoop() {
  test::scriptedStatus().mainLoop();
  std::abort();
}

}  // namespace Platform
}  // namespace tervain
