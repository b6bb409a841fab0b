#include "Platform/Displays.h"

#include <xcb/randr.h>

#include <algorithm>

#include "Platform/Linux/X11.h"

namespace tervain::Platform {
namespace {

Display describe(const xcb_randr_monitor_info_t& monitor) {
  return {monitor.name, monitor.width, monitor.height, monitor.primary != 0};
}

}  // namespace

std::vector<Display> activeDisplays(std::size_t limit) {
  auto x11 = X11::Session::open(X11::Clock::now() + X11::lookLimit);
  if (!x11) {
    return {};
  }
  const auto monitors = x11->await<xcb_randr_get_monitors_reply_t>(
      xcb_randr_get_monitors(x11->get(), x11->screen().root, /*get_active=*/1).sequence);
  if (!monitors) {
    return {};
  }
  std::vector<Display> displays;
  for (auto monitor = xcb_randr_get_monitors_monitors_iterator(monitors.get());
       monitor.rem > 0 && displays.size() < limit; xcb_randr_monitor_info_next(&monitor)) {
    displays.push_back(describe(*monitor.data));
  }
  // Where no monitor is marked as primary, the first is what desktops treat as the main one.
  if (!displays.empty() && std::none_of(displays.begin(), displays.end(),
                                        [](const Display& display) { return display.isMain; })) {
    displays.front().isMain = true;
  }
  return displays;
}

}  // namespace tervain::Platform
