#pragma once

#include <condition_variable>
#include <mutex>
#include <optional>
#include <utility>

#include "VMAgentCore/Deadline.h"
#include "VMAgentCore/System.h"

namespace tervain {

/// Carries one result from a worker to the thread that waits for it. Both share it by a
/// std::shared_ptr, so a result that comes when nobody waits any more is dropped with the box, and
/// needs nothing of what the waiting thread had.
template <class T>
class ResultBox {
 public:
  /// The worker's last word, to be called once: the result, or nothing if it has none.
  void put(std::optional<T> value) {
    const std::lock_guard lock(mutex_);
    value_ = std::move(value);
    isFilled_ = true;
    filled_.notify_one();
  }

  /// Waits for the worker, to be called once. Nothing when it had no result, or none by then.
  std::optional<T> waitUntil(Deadline deadline) {
    std::unique_lock lock(mutex_);
    System::waitUntil(filled_, lock, deadline, [this] { return isFilled_; });
    return std::exchange(value_, std::nullopt);
  }

 private:
  // Not a std::binary_semaphore: with a deadline, GCC's looks at ever longer intervals whether it
  // is free, and so comes up to a third of the wait too late.
  std::mutex mutex_;
  std::condition_variable filled_;
  bool isFilled_ = false;
  std::optional<T> value_;
};

}  // namespace tervain
