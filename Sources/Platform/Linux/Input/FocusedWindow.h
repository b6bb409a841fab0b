#pragma once

#include <xcb/xcb.h>

#include <chrono>

#include "Platform/Linux/X11/Session.h"

namespace tervain::Linux::X11 {

/// The window whose application gets the keys, and whether that application keeps up.
///
/// Window managers ask an application whether it is alive with a message (`_NET_WM_PING`) that it
/// sends back. It takes its events in order, so an answer also tells that it has looked up every
/// key that came before.
class FocusedWindow {
 public:
  explicit FocusedWindow(Session& x11);

  /// Waits until the application has taken every event sent so far. False when it doesn't within
  /// the limit, or can't be asked.
  bool catchesUp(std::chrono::milliseconds limit);

  /// The window, or none where the application can't be asked.
  [[nodiscard]] xcb_window_t window() const { return window_; }

 private:
  [[nodiscard]] bool takesPings(xcb_window_t window);
  void ask(std::uint32_t stamp);
  [[nodiscard]] bool isAnswer(const xcb_generic_event_t& event, std::uint32_t stamp) const;

  Session& x11_;
  xcb_atom_t protocols_ = XCB_ATOM_NONE;
  xcb_atom_t ping_ = XCB_ATOM_NONE;
  xcb_window_t window_ = XCB_NONE;
};

}  // namespace tervain::Linux::X11
