// Takes the place of what the accessibility of the port asks an X server.
#include "Fuzz/ScriptedWindows.h"

namespace tervain {

std::vector<X11::Window>& fuzz::scriptedWindows() {
  static std::vector<X11::Window> windows;
  return windows;
}

namespace X11 {

Session::Session(Connection connection, Clock::time_point deadline)
    : connection_(std::move(connection)), deadline_(deadline) {}

Session::~Session() = default;

std::optional<Session> Session::open(Clock::time_point deadline) {
  return Session(nullptr, deadline);
}

std::vector<Window> windowsOf(Session& /*x11*/, pid_t /*pid*/) {
  return fuzz::scriptedWindows();
}

std::optional<Window> windowAt(Session& /*x11*/, int /*x*/, int /*y*/) {
  const auto& windows = fuzz::scriptedWindows();
  return windows.empty() ? std::nullopt : std::optional(windows.front());
}

void activate(Session& /*x11*/, xcb_window_t /*window*/) {}

}  // namespace X11
}  // namespace tervain
