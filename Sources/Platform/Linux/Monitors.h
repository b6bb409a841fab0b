#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "Platform/Linux/X11.h"

namespace tervain::X11 {

/// A part of the screen, in pixels.
struct Area {
  std::int16_t x;
  std::int16_t y;
  std::uint16_t width;
  std::uint16_t height;
};

struct Monitor {
  std::uint32_t id;  ///< the atom of its name
  Area area;         ///< may reach beyond the screen
  bool isMain;
};

/// The monitors that are in use, in the server's order; where the server has none, the screen as
/// one monitor. Nothing when it does not answer.
std::optional<std::vector<Monitor>> activeMonitors(Session& x11);

/// The size of the screen as it is now; the one in the connection's setup is as old as that.
std::optional<Area> screenArea(Session& x11);

}  // namespace tervain::X11
