#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tervain::Platform {

struct Display {
  std::uint32_t id;   ///< the system's identifier
  std::size_t width;  ///< in pixels of the current mode
  std::size_t height;
  bool isMain;
};

/// The active displays in the system's order, `limit` at the most. Empty when the list can't be
/// had.
std::vector<Display> activeDisplays(std::size_t limit);

}  // namespace tervain::Platform
