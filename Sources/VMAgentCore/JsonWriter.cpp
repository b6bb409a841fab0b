// A writer of our own: slashes are to be escaped, which the library's can't, and a second pass over
// a text of megabytes, or the library's preparations for one of a hundred bytes, take longer than
// the writing.

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <utility>

#include "VMAgentCore/Json.h"
#include "VMAgentCore/Unicode.h"

namespace tervain {
namespace {

constexpr char unescaped = '\0';

/// What stands behind the backslash of each byte that needs one: its short name, or "u".
constexpr std::array<char, 256> makeEscapes() {
  std::array<char, 256> escapes{};
  for (std::size_t c = 0; c < escapes.size(); ++c) {
    escapes[c] = c < 0x20 ? 'u' : unescaped;
  }
  escapes['\b'] = 'b';
  escapes['\f'] = 'f';
  escapes['\n'] = 'n';
  escapes['\r'] = 'r';
  escapes['\t'] = 't';
  escapes['"'] = '"';
  escapes['\\'] = '\\';
  escapes['/'] = '/';
  return escapes;
}

constexpr auto escapes = makeEscapes();

/// From how many bytes on a string gets its room at once, and how much of a reply comes behind it.
constexpr std::size_t large = 65'536;
constexpr std::size_t tail = 256;

char escapeOf(char c) {
  return escapes[static_cast<unsigned char>(c)];
}

/// Writes a value once, front to back. Functions return whether what they wrote is valid UTF-8.
class Writer {
 public:
  bool value(const Json& value) {
    switch (value.type()) {
      case Json::value_t::object:
        return object(*value.get_ptr<const Json::object_t*>());
      case Json::value_t::array:
        return array(*value.get_ptr<const Json::array_t*>());
      case Json::value_t::string:
        return string(*value.get_ptr<const std::string*>());
      case Json::value_t::number_integer:
        return integer(value.get<std::int64_t>());
      case Json::value_t::number_unsigned:
        return integer(value.get<std::uint64_t>());
      case Json::value_t::boolean:
        text_ += value.get<bool>() ? "true" : "false";
        return true;
      case Json::value_t::number_float:
        text_ += value.dump();  // there are few, and the fewest digits that say the same are an art
        return true;
      default:
        text_ += "null";
        return true;
    }
  }

  std::string take() { return std::move(text_); }

 private:
  bool object(const Json::object_t& members) {
    char before = '{';
    for (const auto& [key, member] : members) {
      text_ += std::exchange(before, ',');
      if (!string(key)) {
        return false;
      }
      text_ += ':';
      if (!value(member)) {
        return false;
      }
    }
    text_ += members.empty() ? "{}" : "}";
    return true;
  }

  bool array(const Json::array_t& elements) {
    char before = '[';
    for (const Json& element : elements) {
      text_ += std::exchange(before, ',');
      if (!value(element)) {
        return false;
      }
    }
    text_ += elements.empty() ? "[]" : "]";
    return true;
  }

  template <class Integer>
  bool integer(Integer number) {
    std::array<char, std::numeric_limits<Integer>::digits10 + 2> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    text_.append(digits.data(), end);
    return true;
  }

  bool string(std::string_view text) {
    if (text.size() > large) {
      // Left to itself, the text would grow to twice what it needs.
      const auto escaped = std::count_if(text.begin(), text.end(), escapeOf);
      text_.reserve(text_.size() + text.size() + static_cast<std::size_t>(escaped) + tail);
    }
    text_ += '"';
    while (!text.empty()) {
      const auto plain = plainLength(text);
      if (!plain) {
        return false;
      }
      text_ += text.substr(0, *plain);
      text.remove_prefix(*plain);
      if (!text.empty()) {
        escape(text.front());
        text.remove_prefix(1);
      }
    }
    text_ += '"';
    return true;
  }

  /// How much of a text's front can stand as it is; nothing when it is not UTF-8.
  static std::optional<std::size_t> plainLength(std::string_view text) {
    std::size_t at = 0;
    for (; at < text.size() && escapeOf(text[at]) == unescaped; ++at) {
      if (static_cast<unsigned char>(text[at]) >= 0x80) {
        const std::size_t length = utf8Length(text.substr(at));
        if (length == 0) {
          return std::nullopt;
        }
        at += length - 1;
      }
    }
    return at;
  }

  void escape(char c) {
    constexpr std::string_view digits = "0123456789abcdef";
    const char name = escapeOf(c);
    (text_ += '\\') += name;
    if (name == 'u') {
      const auto code = static_cast<unsigned char>(c);
      ((text_ += "00") += digits[code >> 4U]) += digits[code & 0xFU];
    }
  }

  std::string text_;
};

}  // namespace

std::optional<std::string> serialize(const Json& value) {
  Writer writer;
  return writer.value(value) ? std::optional(writer.take()) : std::nullopt;
}

std::string serializeLossily(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string utf8Of(std::string_view bytes) {
  return Json::parse(serializeLossily(bytes)).get<std::string>();
}

}  // namespace tervain
