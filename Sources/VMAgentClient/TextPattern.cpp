#include "VMAgentClient/TextPattern.h"

#include <utf8proc.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>

namespace tervain {
namespace {

std::string mapped(std::string_view text, int options) {
  utf8proc_uint8_t* bytes = nullptr;
  const utf8proc_ssize_t length =
      utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                   static_cast<utf8proc_ssize_t>(text.size()), &bytes,
                   static_cast<utf8proc_option_t>(UTF8PROC_STABLE | options));
  const std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owner(bytes, &std::free);
  if (length < 0) {
    throw std::invalid_argument("a text is not UTF-8");
  }
  return {reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length)};
}

std::u32string codePoints(std::string_view text) {
  std::u32string points;
  while (!text.empty()) {
    utf8proc_int32_t point = 0;
    const auto size = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                       static_cast<utf8proc_ssize_t>(text.size()), &point);
    points += static_cast<char32_t>(point);
    text.remove_prefix(static_cast<std::size_t>(size));
  }
  return points;
}

bool isCombining(char32_t point) {
  return utf8proc_get_property(static_cast<utf8proc_int32_t>(point))->combining_class != 0;
}

/// Folds the four letters i of Turkish into one: which of them is another one's capital depends on
/// the language, and that no application tells.
std::u32string withOneI(const std::u32string& decomposed) {
  constexpr char32_t dotless = 0x131;
  constexpr char32_t dotAbove = 0x307;
  std::u32string text;
  bool onI = false;
  for (const char32_t point : decomposed) {
    onI = point == U'i' || point == dotless || (onI && isCombining(point));
    if (point == dotless) {
      text += U'i';
    } else if (!onI || point != dotAbove) {
      text += point;
    }
  }
  return text;
}

std::string utf8(const std::u32string& points) {
  std::string text;
  for (const char32_t point : points) {
    utf8proc_uint8_t bytes[4];
    const auto size = utf8proc_encode_char(static_cast<utf8proc_int32_t>(point), &bytes[0]);
    text.append(reinterpret_cast<const char*>(&bytes[0]), static_cast<std::size_t>(size));
  }
  return text;
}

/// Case is folded in what is decomposed already: the Greek iota below a letter becomes a letter,
/// and accents must not end up on that.
std::u32string folded(std::string_view text) {
  const auto decomposed = mapped(text, UTF8PROC_DECOMPOSE);
  const auto caseless = mapped(decomposed, UTF8PROC_DECOMPOSE | UTF8PROC_CASEFOLD);
  return codePoints(composed(utf8(withOneI(codePoints(caseless)))));
}

/// Whether a text has a part that ends where a character does: "e" is no part of "é", however that
/// is composed.
bool hasPart(const std::u32string& text, const std::u32string& part) {
  for (std::size_t at = text.find(part); at != std::u32string::npos; at = text.find(part, at + 1)) {
    const std::size_t end = at + part.size();
    if (end == text.size() || !isCombining(text[end])) {
      return true;
    }
  }
  return false;
}

}  // namespace

std::string composed(std::string_view text) {
  return mapped(text, UTF8PROC_COMPOSE);
}

TextPattern::TextPattern(std::string_view wanted, bool exact)
    : wanted_(exact ? codePoints(composed(wanted)) : folded(wanted)), exact_(exact) {}

bool TextPattern::fits(std::string_view text) const {
  return exact_ ? codePoints(composed(text)) == wanted_ : hasPart(folded(text), wanted_);
}

}  // namespace tervain
