#include "Platform/macOS/ManualAccessibility.h"

#include <ApplicationServices/ApplicationServices.h>
#include <libproc.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <utility>

#include "Platform/macOS/AXHandle.h"
#include "Platform/macOS/CFRef.h"

namespace tervain::Platform {
namespace {

/// The message is sent in any case. That it was received, nobody needs to know.
constexpr std::chrono::milliseconds hardlyAnyTime{10};

/// When a process was started, in seconds and microseconds: the same number may come again, but
/// not with the same time.
using Start = std::pair<std::uint64_t, std::uint64_t>;

std::optional<Start> startOf(pid_t pid) {
  proc_bsdinfo info{};
  const int size = proc_pidinfo(pid, PROC_PIDTBSDINFO, 0, &info, sizeof info);
  if (size != static_cast<int>(sizeof info)) {
    return std::nullopt;
  }
  return Start(info.pbi_start_tvsec, info.pbi_start_tvusec);
}

/// Whether this is the first time that somebody asks about this process. False when it is none.
bool isNew(pid_t pid) {
  static std::mutex mutex;
  static std::map<pid_t, Start>& known = *new std::map<pid_t, Start>;  // threads outlive the end
  const auto start = startOf(pid);
  if (!start) {
    return false;
  }
  const std::lock_guard lock(mutex);
  const auto [entry, isAdded] = known.try_emplace(pid, *start);
  return isAdded || std::exchange(entry->second, *start) != *start;
}

}  // namespace

void requestElements(pid_t pid) {
  if (!isNew(pid)) {
    return;
  }
  // An object of its own, for the sake of its timeout.
  const auto application = CFRef<AXUIElementRef>::adopt(AXUIElementCreateApplication(pid));
  if (application) {
    setMessagingTimeout(application.get(), hardlyAnyTime);
    AXUIElementSetAttributeValue(application.get(), CFSTR("AXManualAccessibility"), kCFBooleanTrue);
  }
}

}  // namespace tervain::Platform
