#pragma once

#include <chrono>

namespace tervain {

/// A moment by which something must have happened.
using Deadline = std::chrono::steady_clock::time_point;

}  // namespace tervain
