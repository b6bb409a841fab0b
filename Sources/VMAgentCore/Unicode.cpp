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

}  // namespace

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
