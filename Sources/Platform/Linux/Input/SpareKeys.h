#pragma once

#include <xcb/xcb.h>

#include <chrono>
#include <optional>
#include <vector>

#include "Platform/Linux/Input/KeyboardMap.h"
#include "Platform/Linux/Input/MacKeys.h"
#include "Platform/Linux/X11/Session.h"

namespace tervain::Linux::X11 {

/// Keycodes that type nothing, borrowed from the X server's keyboard map to type what no key types.
///
/// Applications look a key up in the map when they get round to its event, not when it was pressed.
/// So a keycode keeps its symbol until the application is known to have done so, or else for
/// `settleTime`; and it is given back only when all has been quiet for longer.
///
/// While keycodes are borrowed a property of the root window names them and their symbols, so that
/// an agent that was killed leaves nothing behind for good: the next one that types takes them
/// over.
class SpareKeys {
 public:
  /// How long an application that doesn't tell is given to look a key up. Most need far less;
  /// one that starts or draws may need twice as long.
  static constexpr std::chrono::milliseconds settleTime{100};

  /// Compares what is borrowed with the server's map: what is no longer there, because someone else
  /// has set a new map or the server is a new one, is forgotten. Takes the spare keycodes out of
  /// the map, so that it holds the layout's own keys alone. False when the server doesn't answer.
  bool refresh(Session& x11, KeyboardMap& map);

  /// The keycode that types these symbols, borrowed for it if need be: the change of the map is
  /// sent but not awaited. It is in use until `endUse`. Nothing when every keycode is in use or
  /// settling, or there are none.
  std::optional<xcb_keycode_t> borrow(Session& x11, const KeySymbols& symbols);

  /// What is in use has been typed. It begins to settle, unless the application has taken it.
  void endUse(bool taken);

  /// Whether anything is in use.
  [[nodiscard]] bool anyInUse() const;

  /// When a keycode will have settled. Nothing when there are none, or all are in use.
  [[nodiscard]] std::optional<Deadline> nextSettled();

  [[nodiscard]] bool anyBorrowed() const;

  /// Gives everything back, in the map that is the server's now. False when the server doesn't
  /// answer; then everything stays as it is.
  bool giveBack(Session& x11);

 private:
  struct Key {
    xcb_keycode_t keyCode{};
    std::optional<KeySymbols> symbols{};  // nothing while it is not borrowed
    bool inUse = false;
    Deadline settled{};  // when it may get another symbol

    [[nodiscard]] bool isOurs(const KeyboardMap& map) const;
  };

  std::vector<Key>::iterator longestUnused();
  bool adopt(Session& x11, const KeyboardMap& map);
  void writeRecord(Session& x11) const;

  std::vector<Key> keys_;
  xcb_atom_t record_ = XCB_ATOM_NONE;
};

}  // namespace tervain::Linux::X11
