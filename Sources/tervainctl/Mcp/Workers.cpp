#include "tervainctl/Mcp/Workers.h"

#include <system_error>

#include "VMAgentCore/System.h"

namespace tervain::mcp {

Workers::~Workers() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  wanted_.notify_all();
  for (std::thread& thread : threads_) {
    thread.join();
  }
}

bool Workers::submit(std::function<void()> job) {
  const std::lock_guard lock(mutex_);
  if (jobs_.size() >= mostWaiting) {
    return false;
  }
  if (threads_.size() < mostThreads && busy_ + jobs_.size() >= threads_.size()) {
    try {
      threads_.emplace_back([this] { work(); });
    } catch (const std::system_error&) {
      if (threads_.empty()) {
        return false;
      }
    }
  }
  jobs_.push_back(std::move(job));
  wanted_.notify_one();
  return true;
}

bool Workers::waitUntilIdle(Deadline deadline) {
  std::unique_lock lock(mutex_);
  return System::waitUntil(idle_, lock, deadline, [this] { return busy_ == 0 && jobs_.empty(); });
}

void Workers::work() {
  std::unique_lock lock(mutex_);
  for (;;) {
    wanted_.wait(lock, [this] { return ending_ || !jobs_.empty(); });
    if (jobs_.empty()) {
      return;
    }
    const auto job = std::move(jobs_.front());
    jobs_.pop_front();
    ++busy_;
    lock.unlock();
    job();
    lock.lock();
    if (--busy_ == 0 && jobs_.empty()) {
      idle_.notify_all();
    }
  }
}

}  // namespace tervain::mcp
