#include "Platform/Linux/Placement.h"

#include <cmath>

namespace tervain {
namespace {

/// How much of an X window the toplevel in it takes up, in pixels.
int visibleWidth(const X11::Window& window) {
  return window.place.width - (window.shadow ? window.shadow->left + window.shadow->right : 0);
}

/// Toolkits scale by whole numbers and simple fractions; what else the widths come to is a window
/// that is being resized.
double scaleOf(const Extents& extents, const X11::Window& window) {
  if (extents.width <= 0) {
    return 1;
  }
  constexpr double step = 0.25;
  const double ratio = static_cast<double>(visibleWidth(window)) / extents.width;
  return std::max(1.0, std::round(ratio / step) * step);
}

double mismatch(const Extents& extents, const X11::Window& window) {
  const double scale = scaleOf(extents, window);
  return std::abs(visibleWidth(window) - extents.width * scale) +
         std::abs(window.place.height - extents.height * scale);
}

}  // namespace

const X11::Window* windowShowing(const Facts& toplevel, const std::vector<X11::Window>& windows) {
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

std::optional<Placement> placementOf(const Facts& toplevel, const X11::Window* window) {
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

}  // namespace tervain
