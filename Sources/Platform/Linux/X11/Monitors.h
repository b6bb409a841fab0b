#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "Platform/Linux/X11/Session.h"

namespace tervain::Linux::X11 {

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
  Area area;  ///< as it is now; `Session::screen()` tells how it was when that was connected
  std::vector<Monitor> monitors;  ///< those in use, in the server's order
};

/// Asks for the screen and its monitors. A server that knows of no monitors is taken to have one,
/// as large as the screen. Nothing when the server does not answer.
std::optional<Screen> lookAtScreen(Session& x11);

}  // namespace tervain::Linux::X11
