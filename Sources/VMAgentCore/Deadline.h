#pragma once

#include <chrono>

namespace tervain {

/// The clock of every wait: it runs on whatever is done to the system's time.
using Clock = std::chrono::steady_clock;

/// A moment by which something must have happened; `Deadline::max()` is never.
using Deadline = Clock::time_point;

/// The moment that is this long from now.
inline Deadline after(Clock::duration limit) {
  return Clock::now() + limit;
}

}  // namespace tervain
