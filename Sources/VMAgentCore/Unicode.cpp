#include "VMAgentCore/Unicode.h"

#include <bit>

namespace tervain {
namespace {

void append(std::u16string& text, char32_t point) {
  if (point < 0x10000) {
    text += static_cast<char16_t>(point);
    return;
  }
  text += static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10));
  text += static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FF));
}

unsigned byteOf(char c) {
  return static_cast<unsigned char>(c);
}

}  // namespace

std::size_t utf8Length(std::string_view text) {
  const unsigned lead = byteOf(text.front());
  const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  if (length == 1) {
    return 1;
  }
  if (lead < 0xC2 || lead > 0xF4 || text.size() < length) {
    return 0;
  }
  for (const char c : text.substr(1, length - 1)) {
    if ((byteOf(c) & 0xC0U) != 0x80) {
      return 0;
    }
  }
  // The second byte's range is narrower behind some leads: no longer form than needed, no
  // surrogate, nothing beyond the last character.
  const unsigned second = byteOf(text[1]);
  const bool narrow = (lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ||
                      (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F);
  return narrow ? 0 : length;
}

std::u16string utf16(std::string_view utf8) {
  std::u16string text;
  text.reserve(utf8.size());
  while (!utf8.empty()) {
    // The ones that lead the first byte count the sequence's bytes; plain ASCII has none.
    const auto first = static_cast<unsigned char>(utf8.front());
    const int ones = std::countl_one(first);
    char32_t point = first & (0xFFU >> ones);
    utf8.remove_prefix(1);
    for (int left = ones - 1; left > 0 && !utf8.empty(); --left) {
      point = (point << 6) | (static_cast<unsigned char>(utf8.front()) & 0x3FU);
      utf8.remove_prefix(1);
    }
    append(text, point);
  }
  return text;
}

}  // namespace tervain
