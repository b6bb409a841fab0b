#include "Platform/Linux/Monitors.h"

#include <xcb/randr.h>

#include <algorithm>

namespace tervain::X11 {
namespace {

Monitor describe(const xcb_randr_monitor_info_t& monitor) {
  return {
      monitor.name, {monitor.x, monitor.y, monitor.width, monitor.height}, monitor.primary != 0};
}

}  // namespace

std::optional<Area> screenArea(Session& x11) {
  const auto geometry =
      x11.await<xcb_get_geometry_reply_t>(xcb_get_geometry(x11.get(), x11.screen().root).sequence);
  if (!geometry) {
    return std::nullopt;
  }
  return Area{0, 0, geometry->width, geometry->height};
}

std::optional<std::vector<Monitor>> activeMonitors(Session& x11) {
  std::vector<Monitor> result;
  if (x11.has(xcb_randr_id)) {
    const auto monitors = x11.await<xcb_randr_get_monitors_reply_t>(
        xcb_randr_get_monitors(x11.get(), x11.screen().root, /*get_active=*/1).sequence);
    if (!monitors) {
      return std::nullopt;
    }
    for (auto monitor = xcb_randr_get_monitors_monitors_iterator(monitors.get()); monitor.rem > 0;
         xcb_randr_monitor_info_next(&monitor)) {
      result.push_back(describe(*monitor.data));
    }
  } else if (const auto screen = screenArea(x11)) {
    result.push_back({0, *screen, true});
  } else {
    return std::nullopt;
  }
  // Where no monitor is marked as primary, the first is what desktops treat as the main one.
  const auto isMain = [](const Monitor& monitor) { return monitor.isMain; };
  if (!result.empty() && std::none_of(result.begin(), result.end(), isMain)) {
    result.front().isMain = true;
  }
  return result;
}

}  // namespace tervain::X11
