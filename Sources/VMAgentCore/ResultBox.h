#pragma once

#include <optional>
#include <semaphore>
#include <utility>

#include "VMAgentCore/Deadline.h"

namespace tervain {

/// Carries one result from a worker to the thread that waits for it. Both share it by a
/// std::shared_ptr, so a result that comes when nobody waits any more is dropped with the box, and
/// needs nothing of what the waiting thread had.
template <class T>
class ResultBox {
 public:
  /// The worker's last word, to be called once: the result, or nothing if it has none.
  void put(std::optional<T> value) {
    value_ = std::move(value);
    filled_.release();
  }

  /// Waits for the worker, to be called once. Nothing when it had no result, or none by then.
  std::optional<T> waitUntil(Deadline deadline) {
    // Nothing else orders the two threads: without the semaphore the value must not be touched.
    return filled_.try_acquire_until(deadline) ? std::move(value_) : std::nullopt;
  }

 private:
  std::optional<T> value_;
  std::binary_semaphore filled_{0};
};

}  // namespace tervain
