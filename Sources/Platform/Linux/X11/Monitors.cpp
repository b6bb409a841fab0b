#include "Platform/Linux/X11/Monitors.h"

#include <algorithm>

namespace tervain::Linux::X11 {
namespace {

Monitor describe(const xcb_randr_monitor_info_t& monitor) {
  return {
      monitor.name, {monitor.x, monitor.y, monitor.width, monitor.height}, monitor.primary != 0};
}

std::vector<Monitor> describeAll(const xcb_randr_get_monitors_reply_t& reply) {
  std::vector<Monitor> monitors;
  for (auto monitor = xcb_randr_get_monitors_monitors_iterator(&reply); monitor.rem > 0;
       xcb_randr_monitor_info_next(&monitor)) {
    monitors.push_back(describe(*monitor.data));
  }
  // Where no monitor is marked as primary, the first is what desktops treat as the main one.
  const auto isMain = [](const Monitor& monitor) { return monitor.isMain; };
  if (!monitors.empty() && std::none_of(monitors.begin(), monitors.end(), isMain)) {
    monitors.front().isMain = true;
  }
  return monitors;
}

}  // namespace

std::optional<Screen> lookAtScreen(Session& x11) {
  const xcb_window_t root = x11.screen().root;
  const bool hasMonitors = x11.has(xcb_randr_id);
  // Both are asked for before either is waited for.
  const auto askedGeometry = xcb_get_geometry(x11.get(), root);
  const auto askedMonitors = hasMonitors ? xcb_randr_get_monitors(x11.get(), root, /*get_active=*/1)
                                         : xcb_randr_get_monitors_cookie_t{};
  const auto geometry = x11.await(askedGeometry);
  const auto monitors = hasMonitors ? x11.await(askedMonitors) : nullptr;
  if (!geometry || (hasMonitors && !monitors)) {
    return std::nullopt;
  }
  const Area area{0, 0, geometry->width, geometry->height};
  return Screen{area, monitors ? describeAll(*monitors) : std::vector{Monitor{0, area, true}}};
}

}  // namespace tervain::Linux::X11
