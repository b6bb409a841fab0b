#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "Platform/Linux/X11/Session.h"

namespace tervain::Linux::X11 {

/// A key of the keyboard map and what it takes to make it type a symbol.
struct KeyPosition {
  xcb_keycode_t keyCode;
  std::uint8_t group;  ///< the layout that must be active, 0 or 1
  bool shift;
};

/// What is locked or latched on the keyboard and would change what keys type.
struct KeyboardLocks {
  std::uint8_t lockedModifiers = 0;
  std::uint8_t lockedGroup = 0;
  bool latched = false;
};

/// The X server's keyboard map and locks at one moment.
class KeyboardMap {
 public:
  /// Nothing when the server doesn't tell.
  static std::optional<KeyboardMap> read(Session& x11);

  /// The symbol of a key in a column of the core map: two levels of layout 0, two of layout 1.
  [[nodiscard]] xcb_keysym_t symbol(xcb_keycode_t keyCode, unsigned column) const;

  /// The key that types a symbol without any modifier, in the active layout if possible.
  [[nodiscard]] std::optional<KeyPosition> findKey(xcb_keysym_t symbol) const;

  /// The key of the first layout that types a symbol by itself or with Shift.
  [[nodiscard]] std::optional<KeyPosition> findTyping(xcb_keysym_t symbol) const;

  /// The keycodes that type nothing and are no modifiers.
  [[nodiscard]] std::vector<xcb_keycode_t> spareKeyCodes() const;

  /// Has a key type nothing in this copy of the map. The server's map stays as it is.
  void hide(xcb_keycode_t keyCode);

  [[nodiscard]] const KeyboardLocks& locks() const { return locks_; }

  /// How many symbols of a key the map has room for.
  [[nodiscard]] unsigned columns() const { return columns_; }

 private:
  KeyboardMap(xcb_keycode_t firstKeyCode, const xcb_get_keyboard_mapping_reply_t& mapping,
              const xcb_get_modifier_mapping_reply_t& modifiers);

  [[nodiscard]] std::optional<xcb_keycode_t> findInColumn(xcb_keysym_t symbol,
                                                          unsigned column) const;

  std::size_t firstKeyCode_;
  unsigned columns_;
  std::vector<xcb_keysym_t> symbols_;  // `columns_` for every key
  std::vector<xcb_keycode_t> modifiers_;
  KeyboardLocks locks_;
};

}  // namespace tervain::Linux::X11
