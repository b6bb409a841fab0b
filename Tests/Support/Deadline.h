#pragma once

#include <chrono>
#include <thread>

#include "VMAgentCore/Deadline.h"

namespace tervain::test {

/// How long a test waits for what must happen: long enough for a sanitized build on a busy machine,
/// and reached only by a test that fails.
inline constexpr std::chrono::seconds patience{30};

/// Asks again and again until `condition` holds; for what nothing announces, such as the state of
/// another process. False when patience ran out.
template <class Condition>
bool eventually(Condition condition, Clock::duration limit = patience,
                Clock::duration pause = std::chrono::milliseconds(5)) {
  const Deadline deadline = after(limit);
  while (!condition()) {
    if (Clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(pause);
  }
  return true;
}

}  // namespace tervain::test
