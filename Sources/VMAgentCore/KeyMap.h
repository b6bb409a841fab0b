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

/// What a chord presses: its last part names the key, those before it name modifiers. Case does not
/// matter; empty parts and modifiers of unknown names are ignored. Nothing when the key's name is
/// unknown.
std::optional<KeyStroke> stroke(std::string_view chord);

/// Turns another spelling of a lower-case key name into the usual one, as "enter" into "return".
/// Other names come back as they are.
std::string_view normalizeKeyName(std::string_view name);

}  // namespace KeyMap
}  // namespace tervain
