#pragma once

#include "Platform/Geometry.h"
#include "Platform/Linux/Accessibility/Snapshot.h"
#include "Platform/Linux/X11/Windows.h"

namespace tervain::Linux {

/// How a window's elements lie on the screen: pixels are the toolkit's units times `scale`, moved
/// by `origin`.
struct Placement {
  Platform::Point origin{};
  double scale = 1;

  [[nodiscard]] Platform::Point position(const Atspi::Extents& extents) const {
    return {origin.x + extents.x * scale, origin.y + extents.y * scale};
  }
  [[nodiscard]] Platform::Size size(const Atspi::Extents& extents) const {
    return {extents.width * scale, extents.height * scale};
  }
};

/// The X window among `windows` that shows a toplevel. Null when none of them can be it.
const X11::Window* windowShowing(const Snapshot& toplevel, const std::vector<X11::Window>& windows);

/// How a toplevel's elements lie. Nothing when that takes its X window and there is none.
std::optional<Placement> placementOf(const Snapshot& toplevel, const X11::Window* window);

/// How the elements of an open popover lie, if an element is one and a window shows it. GTK 4
/// counts from the button that a popover belongs to, and gives it the size of its X window.
std::optional<Placement> popoverPlacement(const Snapshot& popover, const X11::Window& window);

/// By how many pixels in all an element may differ from the X window that shows it: borders do.
inline constexpr double windowMargin = 48;

/// By how many pixels in all an element's edges and size differ from those of an X window. Infinite
/// for an element without a place.
double distance(const Snapshot& snapshot, const Placement& placement, const X11::Window& window);

}  // namespace tervain::Linux
