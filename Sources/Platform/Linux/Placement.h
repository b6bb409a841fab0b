#pragma once

#include "Platform/Geometry.h"
#include "Platform/Linux/Facts.h"
#include "Platform/Linux/Windows.h"

namespace tervain {

/// How a window's elements lie on the screen: pixels are the toolkit's units times `scale`, moved
/// by `origin`.
struct Placement {
  Platform::Point origin{};
  double scale = 1;

  [[nodiscard]] Platform::Point position(const Extents& extents) const {
    return {origin.x + extents.x * scale, origin.y + extents.y * scale};
  }
  [[nodiscard]] Platform::Size size(const Extents& extents) const {
    return {extents.width * scale, extents.height * scale};
  }
};

/// The X window among `windows` that shows a toplevel. Null when none of them can be it.
const X11::Window* windowShowing(const Facts& toplevel, const std::vector<X11::Window>& windows);

/// How a toplevel's elements lie. Nothing when that takes its X window and there is none.
std::optional<Placement> placementOf(const Facts& toplevel, const X11::Window* window);

}  // namespace tervain
