#include "VMAgentCore/IdleTimer.h"

#include <exception>
#include <thread>
#include <utility>

namespace tervain {

IdleTimer::IdleTimer(std::mutex& ownersLock, Clock::duration idleTime, Work work, int attempts)
    : mutex_(ownersLock), idleTime_(idleTime), work_(std::move(work)), attempts_(attempts) {}

bool IdleTimer::restart() {
  lastUse_ = Clock::now();
  if (running_) {
    return true;
  }
  try {
    std::thread([this] { run(); }).detach();
  } catch (const std::exception&) {  // no thread, or no memory for one
    return false;
  }
  running_ = true;
  return true;
}

void IdleTimer::run() {
  std::unique_lock lock(mutex_);
  auto wait = idleTime_;
  for (int failures = 0; failures < attempts_;) {
    const Deadline lastUse = lastUse_;
    if (const Deadline due = lastUse + wait; due > Clock::now()) {
      lock.unlock();
      std::this_thread::sleep_until(due);
      lock.lock();
    } else if (!work_(lock)) {
      ++failures;
      wait *= 2;
    } else if (lastUse_ == lastUse) {
      break;
    } else {  // used again while the lock was released
      failures = 0;
      wait = idleTime_;
    }
  }
  running_ = false;
}

}  // namespace tervain
