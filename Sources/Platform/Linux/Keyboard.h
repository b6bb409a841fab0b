#pragma once

#include <xcb/xcb.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Linux/KeyboardMap.h"
#include "Platform/Linux/SpareKeys.h"
#include "Platform/Linux/X11.h"

namespace tervain::X11 {

/// The keyboard as the agent plays it: one for the process, used by any thread. Every call returns
/// when the server has taken its events, or after a few seconds without a server that does.
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

  Keyboard() = default;

  std::unique_lock<std::mutex> lockWithoutChords();
  std::optional<Prepared> prepare();
  std::vector<Tap> plan(Prepared& prepared, const std::vector<xcb_keysym_t>& symbols,
                        std::size_t from);
  void typeSymbols(Prepared& prepared, const std::vector<xcb_keysym_t>& symbols);
  std::vector<xcb_keycode_t> chordKeys(Prepared& prepared, std::uint16_t keyCode,
                                       std::uint64_t flags, std::uint8_t& group);
  bool awaitTaken(Session& x11);
  void afterUse();
  void restoreWhenQuiet();
  bool giveBack();

  std::mutex mutex_;
  std::condition_variable chordEnded_;
  std::map<Chord, std::vector<xcb_keycode_t>> held_;
  SpareKeys spareKeys_;
  xcb_window_t silentWindow_ = XCB_NONE;
  bool restorerRuns_ = false;
  Clock::time_point lastUse_;
};

}  // namespace tervain::X11
