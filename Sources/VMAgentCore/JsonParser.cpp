// A reader of our own, as the library's costs more than a peer that means harm may make us pay: its
// parser that can bound depth looks through the whole parent at every object's end, and all of its
// parsers hold what they read of a string or a number three times over.

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <utility>

#include "VMAgentCore/Json.h"
#include "VMAgentCore/Unicode.h"

namespace tervain {
namespace {

/// How many values a text may have that is kept with all its contents: a million small ones take
/// some 100 MB. The largest tree that the agent writes has some ten thousand.
constexpr int maxValues = 1'000'000;

/// How many of a number's digits are looked at. Beyond 768 the most that one can do is to show that
/// a number is not exactly halfway between two doubles.
constexpr std::size_t maxDigits = 800;

constexpr bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

/// Which bytes end a run of a string that is taken as it stands.
constexpr std::array<bool, 256> makeSpecial() {
  std::array<bool, 256> special{};
  for (std::size_t c = 0; c < special.size(); ++c) {
    special[c] = c < 0x20 || c == '"' || c == '\\' || c >= 0x80;
  }
  return special;
}

constexpr auto special = makeSpecial();

unsigned char byteOf(char c) {
  return static_cast<unsigned char>(c);
}

void appendUTF8(std::string& to, std::uint32_t character) {
  const auto put = [&to](std::uint32_t byte) { to.push_back(static_cast<char>(byte)); };
  const auto rest = [&put, character](unsigned shift) {
    put(0x80U | (character >> shift & 0x3FU));
  };
  if (character < 0x80) {
    put(character);
  } else if (character < 0x800) {
    put(0xC0U | character >> 6U);
    rest(0);
  } else if (character < 0x10000) {
    put(0xE0U | character >> 12U);
    rest(6);
    rest(0);
  } else {
    put(0xF0U | character >> 18U);
    rest(12);
    rest(6);
    rest(0);
  }
}

/// The value of a valid JSON number. It is handed to the C library as an integer with an exponent:
/// what else is a decimal point depends on the locale, and digits without end can take it forever.
double toDouble(std::string_view number) {
  const std::size_t end = std::min(number.find_first_of("eE"), number.size());
  std::string digits;
  std::int64_t exponent = 0;
  bool fraction = false;
  bool more = false;
  for (const char c : number.substr(0, end)) {
    fraction = fraction || c == '.';
    if (!isDigit(c)) {
      continue;
    }
    if (digits.size() == maxDigits) {
      more = more || c != '0';
      exponent += fraction ? 0 : 1;
      continue;
    }
    exponent -= fraction ? 1 : 0;
    if (c != '0' || !digits.empty()) {
      digits.push_back(c);
    }
  }
  if (more) {
    digits.back() = '1';  // it is in the limit's slack, and anything but zero does
  }
  constexpr std::int64_t farBeyond = 1'000'000'000;
  if (end < number.size()) {
    const bool negative = number[end + 1] == '-';
    const std::size_t from = end + (isDigit(number[end + 1]) ? 1 : 2);
    std::int64_t written = 0;
    const char* const last = number.data() + number.size();
    const bool fits = std::from_chars(number.data() + from, last, written).ec == std::errc() &&
                      written < farBeyond;
    written = fits ? written : farBeyond;
    exponent += negative ? -written : written;
  }
  digits.insert(0, number.starts_with('-') ? "-0" : "0");
  return std::strtod(digits.append("e").append(std::to_string(exponent)).c_str(), nullptr);
}

/// Reads a text once, front to back. Functions return whether it is valid so far; where they are
/// given no place for a value they only check it.
class Parser {
 public:
  /// Keeps everything.
  explicit Parser(std::string_view text) : text_(text) {}

  /// Keeps the outermost object's members of these names.
  Parser(std::string_view text, std::span<const std::string_view> names)
      : text_(text), names_(names), whole_(false) {}

  bool run(Json& into) {
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    at_ = text_.starts_with(byteOrderMark) ? byteOrderMark.size() : 0;
    skipSpace();
    if (peek() != '{' || !value(&into, 0)) {
      return false;
    }
    skipSpace();
    return at_ == text_.size();
  }

 private:
  /// The next character; a NUL, which is valid nowhere, at the end.
  [[nodiscard]] char peek() const { return at_ < text_.size() ? text_[at_] : '\0'; }

  bool take(char c) {
    const bool there = peek() == c;
    at_ += there ? 1 : 0;
    return there;
  }

  bool take(std::string_view word) {
    const bool there = text_.substr(at_).starts_with(word);
    at_ += there ? word.size() : 0;
    return there;
  }

  void skipSpace() {
    while (peek() == ' ' || peek() == '\t' || peek() == '\n' || peek() == '\r') {
      ++at_;
    }
  }

  /// A value that stands in `depth` others.
  bool value(Json* into, int depth) {
    if (into && whole_ && ++values_ > maxValues) {
      return false;
    }
    switch (peek()) {
      case '{':
        return depth < maxJsonDepth && object(into, depth);
      case '[':
        return depth < maxJsonDepth && array(into, depth);
      case '"':
        return text(into);
      case 't':
        return take("true") && put(into, true);
      case 'f':
        return take("false") && put(into, false);
      case 'n':
        return take("null") && put(into, nullptr);
      default:
        return number(into);
    }
  }

  template <class T>
  static bool put(Json* into, T&& value) {
    if (into) {
      *into = std::forward<T>(value);
    }
    return true;
  }

  bool text(Json* into) {
    if (!into) {
      return string(nullptr);
    }
    std::string read;
    return string(&read) && put(into, std::move(read));
  }

  bool array(Json* into, int depth) {
    ++at_;
    put(into, Json::array());
    auto* const elements = into && whole_ ? into->get_ptr<Json::array_t*>() : nullptr;
    skipSpace();
    if (take(']')) {
      return true;
    }
    do {
      skipSpace();
      if (!value(elements ? &elements->emplace_back() : nullptr, depth + 1)) {
        return false;
      }
      skipSpace();
    } while (take(','));
    return take(']');
  }

  bool object(Json* into, int depth) {
    ++at_;
    put(into, Json::object());
    auto* const members =
        into && (whole_ || depth == 0) ? into->get_ptr<Json::object_t*>() : nullptr;
    skipSpace();
    if (take('}')) {
      return true;
    }
    do {
      skipSpace();
      if (!string(members ? &key_ : nullptr)) {
        return false;
      }
      skipSpace();
      // Of members of the same name the last one counts.
      if (!take(':') || !member(members && isKept() ? &(*members)[key_] : nullptr, depth)) {
        return false;
      }
      skipSpace();
    } while (take(','));
    return take('}');
  }

  bool member(Json* into, int depth) {
    skipSpace();
    return value(into, depth + 1);
  }

  [[nodiscard]] bool isKept() const {
    return whole_ || std::find(names_.begin(), names_.end(), key_) != names_.end();
  }

  bool string(std::string* into) {
    if (!take('"')) {
      return false;
    }
    if (into) {
      into->clear();
    }
    for (;;) {
      const std::size_t from = at_;
      skipPlain();
      if (into) {
        into->append(text_, from, at_ - from);
      }
      if (take('"')) {
        return true;
      }
      if (!take('\\') || !escape(into)) {
        return false;
      }
    }
  }

  /// Passes what stands in a string as it is.
  void skipPlain() {
    for (; at_ < text_.size(); ++at_) {
      if (!special[byteOf(text_[at_])]) {
        continue;
      }
      const std::size_t length = byteOf(text_[at_]) < 0x80 ? 0 : utf8Length(text_.substr(at_));
      if (length == 0) {
        break;
      }
      at_ += length - 1;
    }
  }

  bool escape(std::string* into) {
    constexpr std::string_view names = "\"\\/bfnrt";
    constexpr std::string_view meant = "\"\\/\b\f\n\r\t";
    const char name = peek();
    ++at_;
    if (name == 'u') {
      return escapedCharacter(into);
    }
    const std::size_t which = names.find(name);
    if (which == std::string_view::npos) {
      return false;
    }
    if (into) {
      into->push_back(meant[which]);
    }
    return true;
  }

  /// What follows "\u": four digits, or those of two surrogates.
  bool escapedCharacter(std::string* into) {
    const auto unit = hexDigits();
    if (!unit || isLowSurrogate(*unit)) {
      return false;
    }
    char32_t character = *unit;
    if (isHighSurrogate(*unit)) {
      const auto low = take("\\u") ? hexDigits() : std::nullopt;
      if (!low || !isLowSurrogate(*low)) {
        return false;
      }
      character = codePoint(*unit, *low);
    }
    if (into) {
      appendUTF8(*into, character);
    }
    return true;
  }

  std::optional<char16_t> hexDigits() {
    constexpr std::size_t count = 4;
    const std::string_view digits = text_.substr(std::min(at_, text_.size()), count);
    std::uint16_t result = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, failed] = std::from_chars(digits.data(), end, result, 16);
    at_ += digits.size();
    return failed == std::errc() && digits.size() == count && stop == end
               ? std::optional<char16_t>(result)
               : std::nullopt;
  }

  bool number(Json* into) {
    const std::size_t from = at_;
    const bool negative = take('-');
    bool integer = true;
    if (!take('0') && !digits()) {
      return false;
    }
    if (take('.')) {
      integer = false;
      if (!digits()) {
        return false;
      }
    }
    if (take('e') || take('E')) {
      integer = false;
      static_cast<void>(take('+') || take('-'));
      if (!digits()) {
        return false;
      }
    }
    return convert(into, text_.substr(from, at_ - from), integer, negative);
  }

  bool digits() {
    const std::size_t from = at_;
    while (isDigit(peek())) {
      ++at_;
    }
    return at_ > from;
  }

  /// One that no integer type holds is a double, and one that no double holds is not valid.
  static bool convert(Json* into, std::string_view number, bool integer, bool negative) {
    if (integer && (negative ? putInteger<std::int64_t>(into, number)
                             : putInteger<std::uint64_t>(into, number))) {
      return true;
    }
    const double value = toDouble(number);
    return std::isfinite(value) && put(into, value);
  }

  template <class Integer>
  static bool putInteger(Json* into, std::string_view number) {
    Integer value{};
    return std::from_chars(number.data(), number.data() + number.size(), value).ec == std::errc() &&
           put(into, value);
  }

  std::string_view text_;
  std::span<const std::string_view> names_;
  bool whole_ = true;
  std::size_t at_ = 0;
  int values_ = 0;
  std::string key_;
};

std::optional<Json> result(Parser parser) {
  std::optional<Json> object(std::in_place);
  if (!parser.run(*object)) {
    object.reset();
  }
  return object;
}

}  // namespace

std::optional<Json> parseObject(std::string_view text) {
  return result(Parser(text));
}

std::optional<Json> parseMembers(std::string_view text, std::span<const std::string_view> names) {
  return result(Parser(text, names));
}

}  // namespace tervain
