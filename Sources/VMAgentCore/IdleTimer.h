#pragma once

#include <functional>
#include <mutex>

#include "VMAgentCore/Deadline.h"

namespace tervain {

/// Clears up after something that has not been used for a while. The work is done under the owner's
/// lock by a detached thread, which lives only while there is something to wait for; so the owner
/// must never be destroyed.
class IdleTimer {
 public:
  /// Returns whether it is done. It may release the lock meanwhile, but not leave it so, and must
  /// not throw.
  using Work = std::function<bool(std::unique_lock<std::mutex>& lock)>;

  /// The work is done when `restart` has not been called for as long as `idleTime`. Work that fails
  /// is tried again, each time after twice as long since the last use, `attempts` times in all.
  IdleTimer(std::mutex& ownersLock, Clock::duration idleTime, Work work, int attempts = 1);

  /// To be called under the owner's lock at each use that leaves something to clear up. False when
  /// no thread can be started: then nothing will be done until another use.
  bool restart();

 private:
  void run();

  std::mutex& mutex_;
  const Clock::duration idleTime_;
  const Work work_;
  const int attempts_;
  Deadline lastUse_;
  bool running_ = false;
};

}  // namespace tervain
