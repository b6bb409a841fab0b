#include "Platform/Displays.h"

#include <CoreGraphics/CoreGraphics.h>

#include <algorithm>

namespace tervain::Platform {

std::vector<Display> activeDisplays(std::size_t limit) {
  std::vector<CGDirectDisplayID> ids(limit);
  std::uint32_t count = 0;  // stays so when the list can't be had
  CGGetActiveDisplayList(static_cast<std::uint32_t>(limit), ids.data(), &count);
  ids.resize(std::min<std::size_t>(count, limit));

  std::vector<Display> displays;
  displays.reserve(ids.size());
  for (const CGDirectDisplayID id : ids) {
    displays.push_back(
        {id, CGDisplayPixelsWide(id), CGDisplayPixelsHigh(id), CGDisplayIsMain(id) != 0});
  }
  return displays;
}

}  // namespace tervain::Platform
