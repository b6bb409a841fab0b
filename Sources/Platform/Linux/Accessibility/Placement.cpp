#include "Platform/Linux/Accessibility/Placement.h"

#include <cmath>
#include <limits>

namespace tervain::Linux {
namespace {

/// How much of an X window the toplevel in it takes up, in pixels.
int visibleWidth(const X11::Window& window) {
  return window.place.width - (window.shadow ? window.shadow->left + window.shadow->right : 0);
}

/// Toolkits scale by whole numbers and simple fractions; what else the widths come to is a window
/// that is being resized.
double scaleOf(const Atspi::Extents& extents, const X11::Window& window) {
  if (extents.width <= 0) {
    return 1;
  }
  constexpr double step = 0.25;
  const double ratio = static_cast<double>(visibleWidth(window)) / extents.width;
  return std::max(1.0, std::round(ratio / step) * step);
}

double mismatch(const Atspi::Extents& extents, const X11::Window& window) {
  const double scale = scaleOf(extents, window);
  return std::abs(visibleWidth(window) - extents.width * scale) +
         std::abs(window.place.height - extents.height * scale);
}

}  // namespace

const X11::Window* windowShowing(const Snapshot& toplevel,
                                 const std::vector<X11::Window>& windows) {
  if (!toplevel.extents) {
    return nullptr;
  }
  const X11::Window* best = nullptr;
  bool bestTitle = false;
  for (const X11::Window& window : windows) {
    const bool title = window.title == toplevel.name;
    const bool better = !best || (title && !bestTitle) ||
                        (title == bestTitle &&
                         mismatch(*toplevel.extents, window) < mismatch(*toplevel.extents, *best));
    if (better) {
      best = &window;
      bestTitle = title;
    }
  }
  return best;
}

std::optional<Placement> placementOf(const Snapshot& toplevel, const X11::Window* window) {
  if (toplevel.toolkit != Toolkit::gtk4) {
    // Their places are on the screen already.
    return Placement{
        {}, window != nullptr && toplevel.extents ? scaleOf(*toplevel.extents, *window) : 1};
  }
  if (!window || !toplevel.extents) {
    return std::nullopt;
  }
  const double scale = scaleOf(*toplevel.extents, *window);
  const double rest = window->place.width - toplevel.extents->width * scale;
  const double left = window->shadow ? window->shadow->left : rest / 2;
  const double top = window->shadow ? window->shadow->top : rest / 2;
  return Placement{{window->place.x + left, window->place.y + top}, scale};
}

std::optional<Placement> popoverPlacement(const Snapshot& popover, const X11::Window& window) {
  if (popover.toolkit != Toolkit::gtk4 || !popover.extents || popover.extents->areNowhere()) {
    return std::nullopt;
  }
  const Atspi::Extents& e = *popover.extents;
  const double scale = static_cast<double>(window.place.width) / e.width;
  if (scale < 1 || e.height * scale != window.place.height) {
    return std::nullopt;
  }
  return Placement{{window.place.x - e.x * scale, window.place.y - e.y * scale}, scale};
}

double distance(const Snapshot& snapshot, const Placement& placement, const X11::Window& window) {
  if (!snapshot.extents) {
    return std::numeric_limits<double>::infinity();
  }
  const Platform::Point at = placement.position(*snapshot.extents);
  const Platform::Size size = placement.size(*snapshot.extents);
  return std::abs(at.x - window.place.x) + std::abs(at.y - window.place.y) +
         std::abs(size.width - window.place.width) + std::abs(size.height - window.place.height);
}

}  // namespace tervain::Linux
