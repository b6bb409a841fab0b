#include "Platform/Displays.h"

#include "Platform/Linux/X11/Monitors.h"

namespace tervain::Platform {

using namespace Linux;

std::vector<Display> activeDisplays(std::size_t limit) {
  auto x11 = X11::Session::open(after(X11::lookLimit));
  if (!x11) {
    return {};
  }
  const auto screen = X11::lookAtScreen(*x11);
  if (!screen) {
    return {};
  }
  std::vector<Display> displays;
  for (const X11::Monitor& monitor : screen->monitors) {
    if (displays.size() < limit) {
      displays.push_back({monitor.id, monitor.area.width, monitor.area.height, monitor.isMain});
    }
  }
  return displays;
}

}  // namespace tervain::Platform
