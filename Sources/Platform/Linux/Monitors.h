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

struct Screen {
  Area area;  ///< as it is now; the one in the connection's setup is as old as that
  std::vector<Monitor> monitors;  ///< those in use, in the server's order
};

/// Asks for the screen and its monitors. Where the server has no monitors, the screen is the one.
/// Nothing when it does not answer.
std::optional<Screen> lookAtScreen(Session& x11);

}  // namespace tervain::X11
