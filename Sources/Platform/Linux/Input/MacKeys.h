#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <optional>

namespace tervain::Linux::X11 {

/// What a key types: by itself, and with Shift.
struct KeySymbols {
  xcb_keysym_t plain;
  xcb_keysym_t shifted;

  friend bool operator==(const KeySymbols&, const KeySymbols&) = default;
};

/// What the key with a macOS virtual key code types on the US layout. Nothing for a key that has no
/// counterpart.
std::optional<KeySymbols> symbolsOfMacKey(std::uint16_t keyCode);

/// The key symbol that types a Unicode character; for a control character the key that does what it
/// stands for, as Return for a line feed. Nothing for one that no key types.
std::optional<xcb_keysym_t> symbolOfCharacter(char32_t character);

}  // namespace tervain::Linux::X11
