#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "VMAgentCore/Deadline.h"

namespace tervain::mcp {

/// Threads that do jobs side by side. They are started as they are needed, so many at the most;
/// further jobs wait.
class Workers {
 public:
  static constexpr std::size_t mostThreads = 32;
  static constexpr std::size_t mostWaiting = 256;

  Workers() = default;
  ~Workers();
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;

  /// False when too many wait already. A job throws nothing.
  [[nodiscard]] bool submit(std::function<void()> job);

  /// Waits until all jobs are done. False when they are not by the deadline.
  [[nodiscard]] bool waitUntilIdle(Deadline deadline);

 private:
  void work();

  std::mutex mutex_;
  std::condition_variable wanted_;
  std::condition_variable idle_;
  std::deque<std::function<void()>> jobs_;
  std::vector<std::thread> threads_;
  std::size_t busy_ = 0;
  bool ending_ = false;
};

}  // namespace tervain::mcp
