#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace tervain {

/// The modifiers of a keyboard event. The bits are those of macOS's CGEventFlags.
namespace EventFlags {
inline constexpr std::uint64_t maskShift = 0x20000;
inline constexpr std::uint64_t maskControl = 0x40000;
inline constexpr std::uint64_t maskAlternate = 0x80000;
inline constexpr std::uint64_t maskCommand = 0x100000;
inline constexpr std::uint64_t maskSecondaryFn = 0x800000;
}  // namespace EventFlags

/// One key with modifiers.
struct KeyStroke {
  std::uint16_t keyCode;  ///< a macOS virtual key code
  std::uint64_t flags;    ///< of EventFlags

  friend bool operator==(const KeyStroke&, const KeyStroke&) = default;
};

/// The names of keys and modifiers in chords such as "cmd+s".
namespace KeyMap {

/// What a chord presses: its last part is the key, those before it are modifiers. Case does not
/// matter, empty parts are dropped, and modifiers that have no name here are ignored. Nothing when
/// the key has no name here.
std::optional<KeyStroke> stroke(std::string_view chord);

/// The name that a lower-case key name stands for; most names stand for themselves.
std::string_view normalizeKeyName(std::string_view name);

}  // namespace KeyMap
}  // namespace tervain
