#pragma once

#include <xcb/xcb.h>

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Linux/Input/KeyboardMap.h"
#include "Platform/Linux/Input/SpareKeys.h"
#include "Platform/Linux/X11/Session.h"
#include "VMAgentCore/IdleTimer.h"
#include "VMAgentCore/NeverDestroyed.h"

namespace tervain::Linux::X11 {

/// The keyboard that the agent types on: one for the process, for any thread. Every call returns
/// when the server has taken its events, and gives up on a server that does not for many seconds.
class Keyboard {
 public:
  static Keyboard& shared();

  /// Types a text, whatever layouts and locks are active. No other call's events come between its
  /// own. A surrogate pair may be split over two calls of the same thread.
  void type(std::u16string_view text);

  /// Presses the modifiers of the flags, then the key with a macOS virtual key code.
  void press(std::uint16_t keyCode, std::uint64_t flags);

  /// Releases what `press` pressed.
  void release(std::uint16_t keyCode, std::uint64_t flags);

  /// Gives all borrowed keycodes back at once: for the end of the process.
  void restore();

 private:
  using Chord = std::pair<std::uint16_t, std::uint64_t>;

  /// A key to tap, or to hold.
  struct Tap {
    xcb_keycode_t keyCode;
    bool shift;
  };

  struct Prepared;

  Keyboard();
  friend NeverDestroyed<Keyboard>;

  std::unique_lock<std::mutex> lockWithoutChords();
  std::optional<Prepared> prepare();
  std::vector<Tap> plan(Prepared& prepared, const std::vector<xcb_keysym_t>& symbols,
                        std::size_t from);
  void typeSymbols(Prepared& prepared, const std::vector<xcb_keysym_t>& symbols);
  std::vector<xcb_keycode_t> chordKeys(Prepared& prepared, std::uint16_t keyCode,
                                       std::uint64_t flags, std::uint8_t& group);
  bool awaitTaken(Session& x11);
  void afterUse();
  bool giveBack();

  std::mutex mutex_;
  std::condition_variable chordEnded_;
  std::map<Chord, std::vector<xcb_keycode_t>> held_;
  SpareKeys spareKeys_;
  xcb_window_t silentWindow_ = XCB_NONE;
  IdleTimer restorer_;
};

}  // namespace tervain::Linux::X11
