#pragma once

#include <chrono>
#include <thread>

#include "VMAgentCore/Deadline.h"

namespace tervain::ctl::conform {

/// How long anything may take that must happen. Longer than the agent itself waits for a launch or
/// a picture, and reached only by what does not happen.
inline constexpr std::chrono::seconds patience{20};

/// The moment when patience runs out.
inline Deadline soon() {
  return std::chrono::steady_clock::now() + patience;
}

/// Asks again and again until `condition` holds. False when it does not in time.
template <class Condition>
bool eventually(Condition condition, std::chrono::milliseconds limit = patience) {
  constexpr std::chrono::milliseconds pause{50};  // an application is asked, which has work to do
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(pause);
  }
  return true;
}

}  // namespace tervain::ctl::conform
