#include "Platform/Pointer.h"

#include <CoreGraphics/CoreGraphics.h>

#include "Platform/macOS/CFRef.h"

namespace tervain::Platform {

std::optional<Point> pointerLocation() {
  // An event without a source says where the pointer is now.
  const auto event = CFRef<CGEventRef>::adopt(CGEventCreate(nullptr));
  if (!event) {
    return std::nullopt;
  }
  const CGPoint location = CGEventGetLocation(event.get());
  return Point{location.x, location.y};
}

}  // namespace tervain::Platform
