#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tervain {

/// How many bytes of UTF-8 the character has that a text starts with, which is not empty; none if
/// that is not UTF-8.
std::size_t utf8Length(std::string_view text);

/// The UTF-16 code units of a text that is valid UTF-8.
std::u16string utf16(std::string_view utf8);

/// Whether a UTF-16 code unit is the first or the second half of a surrogate pair.
constexpr bool isHighSurrogate(char16_t unit) {
  return unit >= 0xD800 && unit < 0xDC00;
}
constexpr bool isLowSurrogate(char16_t unit) {
  return unit >= 0xDC00 && unit < 0xE000;
}

/// The code point that the two halves of a surrogate pair make.
constexpr char32_t codePoint(char16_t high, char16_t low) {
  return 0x10000 + ((static_cast<char32_t>(high) - 0xD800) << 10) + (low - 0xDC00);
}

}  // namespace tervain
