#include "Platform/Linux/Input/KeyboardMap.h"

#include <algorithm>

namespace tervain::Linux::X11 {
namespace {

constexpr unsigned columnsPerGroup = 2;
constexpr std::uint8_t groups = 2;  // those that the core map has room for

}  // namespace

std::optional<KeyboardMap> KeyboardMap::read(Session& x11) {
  xcb_connection_t* const connection = x11.get();
  const xcb_setup_t& setup = *xcb_get_setup(connection);
  const auto first = setup.min_keycode;
  const auto count = static_cast<std::uint8_t>(setup.max_keycode - first + 1);
  const auto askedMapping = xcb_get_keyboard_mapping(connection, first, count);
  const auto askedModifiers = xcb_get_modifier_mapping(connection);
  const bool hasXkb = x11.has(xcb_xkb_id);
  const auto askedState = hasXkb ? xcb_xkb_get_state(connection, XCB_XKB_ID_USE_CORE_KBD)
                                 : xcb_xkb_get_state_cookie_t{};
  const auto mapping = x11.await(askedMapping);
  const auto modifiers = x11.await(askedModifiers);
  if (!mapping || !modifiers || mapping->keysyms_per_keycode == 0) {
    return std::nullopt;
  }
  KeyboardMap map(first, *mapping, *modifiers);
  if (hasXkb) {
    const auto state = x11.await(askedState);
    if (!state) {
      return std::nullopt;
    }
    map.locks_ = {state->lockedMods, state->lockedGroup,
                  state->latchedMods != 0 || state->latchedGroup != 0};
  }
  return map;
}

KeyboardMap::KeyboardMap(xcb_keycode_t firstKeyCode,
                         const xcb_get_keyboard_mapping_reply_t& mapping,
                         const xcb_get_modifier_mapping_reply_t& modifiers)
    : firstKeyCode_(firstKeyCode), columns_(mapping.keysyms_per_keycode) {
  const xcb_keysym_t* const symbols = xcb_get_keyboard_mapping_keysyms(&mapping);
  symbols_.assign(symbols, symbols + xcb_get_keyboard_mapping_keysyms_length(&mapping));
  const xcb_keycode_t* const codes = xcb_get_modifier_mapping_keycodes(&modifiers);
  modifiers_.assign(codes, codes + xcb_get_modifier_mapping_keycodes_length(&modifiers));
}

xcb_keysym_t KeyboardMap::symbol(xcb_keycode_t keyCode, unsigned column) const {
  if (keyCode < firstKeyCode_ || column >= columns_) {
    return XCB_NO_SYMBOL;
  }
  const std::size_t index = (keyCode - firstKeyCode_) * columns_ + column;
  return index < symbols_.size() ? symbols_[index] : XCB_NO_SYMBOL;
}

std::optional<xcb_keycode_t> KeyboardMap::findInColumn(xcb_keysym_t symbol, unsigned column) const {
  for (std::size_t index = column; column < columns_ && index < symbols_.size();
       index += columns_) {
    if (symbols_[index] == symbol) {
      return static_cast<xcb_keycode_t>(firstKeyCode_ + index / columns_);
    }
  }
  return std::nullopt;
}

std::optional<KeyPosition> KeyboardMap::findKey(xcb_keysym_t symbol) const {
  const std::uint8_t active = locks_.lockedGroup < groups ? locks_.lockedGroup : 0;
  for (const auto group : {active, static_cast<std::uint8_t>(1 - active)}) {
    if (const auto keyCode = findInColumn(symbol, group * columnsPerGroup)) {
      return KeyPosition{*keyCode, group, /*shift=*/false};
    }
  }
  return std::nullopt;
}

std::optional<KeyPosition> KeyboardMap::findTyping(xcb_keysym_t symbol) const {
  for (const bool shift : {false, true}) {
    if (const auto keyCode = findInColumn(symbol, shift ? 1 : 0)) {
      return KeyPosition{*keyCode, /*group=*/0, shift};
    }
  }
  return std::nullopt;
}

std::vector<xcb_keycode_t> KeyboardMap::spareKeyCodes() const {
  std::vector<xcb_keycode_t> spare;
  for (std::size_t key = 0; key < symbols_.size() / columns_; ++key) {
    const auto keyCode = static_cast<xcb_keycode_t>(firstKeyCode_ + key);
    const auto begin = symbols_.begin() + static_cast<std::ptrdiff_t>(key * columns_);
    const bool typesNothing =
        std::all_of(begin, begin + columns_, [](auto symbol) { return symbol == XCB_NO_SYMBOL; });
    if (typesNothing &&
        std::find(modifiers_.begin(), modifiers_.end(), keyCode) == modifiers_.end()) {
      spare.push_back(keyCode);
    }
  }
  return spare;
}

void KeyboardMap::hide(xcb_keycode_t keyCode) {
  const auto first =
      symbols_.begin() + static_cast<std::ptrdiff_t>((keyCode - firstKeyCode_) * columns_);
  std::fill(first, first + columns_, XCB_NO_SYMBOL);
}

}  // namespace tervain::Linux::X11
