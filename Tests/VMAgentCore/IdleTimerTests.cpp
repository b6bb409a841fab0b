#include <gtest/gtest.h>

#include <vector>

#include "Support/Deadline.h"
#include "VMAgentCore/IdleTimer.h"
#include "VMAgentCore/NeverDestroyed.h"

namespace tervain {
namespace {

using namespace std::chrono_literals;

/// Fails at first, is used again while it succeeds, and notes how long after the last use it is
/// asked.
struct Owner {
  std::mutex mutex;
  Deadline used;
  std::vector<Clock::duration> asked;
  IdleTimer timer{mutex, 20ms, [this](auto& lock) { return clear(lock); }, 3};

  void use() {
    used = Clock::now();
    timer.restart();
  }

  bool clear(std::unique_lock<std::mutex>& lock) {
    asked.push_back(Clock::now() - used);
    if (asked.size() == 3) {
      lock.unlock();
      lock.lock();
      use();
    }
    return asked.size() > 2;
  }
};

TEST(IdleTimer, TriesAgainAfterTwiceAsLongAndNoticesUseMeanwhile) {
  static NeverDestroyed<Owner> owner;
  std::unique_lock lock(owner->mutex);
  owner->use();
  lock.unlock();
  EXPECT_TRUE(test::eventually([] {
    const std::lock_guard again(owner->mutex);
    return owner->asked.size() == 4;
  }));
  lock.lock();
  EXPECT_GE(owner->asked[0], 20ms);
  EXPECT_GE(owner->asked[1], 40ms);
  EXPECT_GE(owner->asked[2], 80ms);
  EXPECT_GE(owner->asked[3], 20ms);
}

}  // namespace
}  // namespace tervain
