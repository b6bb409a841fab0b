#include "VMAgentCore/Base64/Base64.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "VMAgentCore/Base64/Digits.h"

namespace tervain {
namespace {

constexpr std::string_view alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::uint8_t invalid = 0xFF;

constexpr std::array<std::uint8_t, 256> makeDigitValues() {
  std::array<std::uint8_t, 256> values{};
  values.fill(invalid);
  for (std::size_t digit = 0; digit < alphabet.size(); ++digit) {
    values[static_cast<unsigned char>(alphabet[digit])] = static_cast<std::uint8_t>(digit);
  }
  return values;
}

constexpr auto digitValues = makeDigitValues();

/// How much is worked on at a time, in digits, a multiple of 4: little enough to stay in the
/// nearest cache until it is appended to what it becomes a part of. (There is no other way to make
/// a string longer without filling it first.)
constexpr std::size_t blockDigits = 4096;
constexpr std::size_t blockBytes = blockDigits / 4 * 3;

// --- Encoding ------------------------------------------------------------------------------------

char* putDigit(char* out, std::uint32_t bits) {
  const char digit = alphabet[bits & 63U];
  if (digit == '/') {
    *out++ = '\\';
  }
  *out++ = digit;
  return out;
}

/// Three bytes, or the last of them with their padding.
char* putGroup(char* out, std::string_view group) {
  std::uint32_t bits = 0;
  for (std::size_t i = 0; i < 3; ++i) {
    bits = bits << 8U | (i < group.size() ? static_cast<unsigned char>(group[i]) : 0U);
  }
  for (std::size_t i = 0; i <= group.size(); ++i, bits <<= 6U) {
    out = putDigit(out, bits >> 18U);
  }
  return std::fill_n(out, 3 - group.size(), '=');
}

// --- Decoding ------------------------------------------------------------------------------------

/// Takes the backslashes before slashes out of a text. Returns how much is left, or nothing when
/// there are others.
std::optional<std::size_t> unescape(char* out, std::string_view text) {
  auto [in, end] = Base64::unescapeFast(out, text);
  for (; in < text.size(); ++in) {
    if (text[in] != '\\') {
      out[end++] = text[in];
    } else if (!text.substr(in + 1).starts_with('/')) {
      return std::nullopt;
    }
  }
  return end;
}

/// Decodes whole groups without padding. Returns how many bytes they are, or nothing when one of
/// them has anything but digits.
std::optional<std::size_t> decodeGroups(char* out, std::string_view digits) {
  auto [in, end] = Base64::decodeFast(out, digits);
  std::uint32_t seen = 0;  // all values or'ed, so that one test finds an invalid one
  for (; in < digits.size(); in += 4) {
    std::uint32_t bits = 0;
    for (const char digit : digits.substr(in, 4)) {
      const std::uint32_t value = digitValues[static_cast<unsigned char>(digit)];
      seen |= value;
      bits = bits << 6U | value;
    }
    for (const unsigned shift : {16U, 8U, 0U}) {
      out[end++] = static_cast<char>(bits >> shift);
    }
  }
  return seen < alphabet.size() ? std::optional(end) : std::nullopt;
}

/// Decodes the last groups, which may have padding.
std::optional<std::size_t> decodeLastGroups(char* out, char* digits, std::size_t count) {
  std::size_t padding = 0;
  for (; padding < 2 && padding < count && digits[count - 1 - padding] == '='; ++padding) {
    digits[count - 1 - padding] = alphabet.front();  // as if there were bytes, all zeros
  }
  const auto size =
      count % 4 == 0 ? decodeGroups(out, {digits, count}) : std::optional<std::size_t>();
  return size ? std::optional(*size - padding) : std::nullopt;
}

std::optional<std::string> decode(std::string_view text, bool escaped) {
  std::string bytes;
  bytes.reserve(text.size() / 4 * 3);
  // NOLINTBEGIN(*-member-init): written before they are read
  std::array<char, blockDigits + Base64::overrun> digits;
  std::array<char, blockBytes + Base64::overrun> block;
  // NOLINTEND(*-member-init)
  std::size_t held = 0;  // digits that no whole group could be made of yet
  while (!text.empty()) {
    std::string_view piece = text.substr(0, blockDigits - held);
    if (piece.size() < text.size() && piece.ends_with('\\')) {
      piece.remove_suffix(1);  // it goes with what follows
    }
    text.remove_prefix(piece.size());
    std::optional<std::size_t> count = piece.size();
    if (escaped) {
      count = unescape(digits.data() + held, piece);
    } else {
      piece.copy(digits.data() + held, piece.size());
    }
    if (!count) {
      return std::nullopt;
    }
    held += *count;
    const std::size_t whole = text.empty() ? held : held / 4 * 4;
    const auto size = text.empty() ? decodeLastGroups(block.data(), digits.data(), whole)
                                   : decodeGroups(block.data(), {digits.data(), whole});
    if (!size) {
      return std::nullopt;
    }
    bytes.append(block.data(), *size);
    std::copy(digits.begin() + static_cast<std::ptrdiff_t>(whole),
              digits.begin() + static_cast<std::ptrdiff_t>(held), digits.begin());
    held -= whole;
  }
  return bytes;
}

}  // namespace

void appendBase64(std::string& json, std::string_view bytes) {
  json.reserve(json.size() + (bytes.size() + 2) / 3 * 4);
  // NOLINTNEXTLINE(*-member-init): written before it is read
  std::array<char, 2 * blockDigits + Base64::overrun> text;
  while (!bytes.empty()) {
    std::string_view block = bytes.substr(0, blockBytes);
    bytes.remove_prefix(block.size());
    const auto [read, written] = Base64::encodeFast(text.data(), block);
    block.remove_prefix(read);
    char* end = text.data() + written;
    for (; !block.empty(); block.remove_prefix(std::min<std::size_t>(3, block.size()))) {
      end = putGroup(end, block.substr(0, 3));
    }
    json.append(text.data(), end);
  }
}

std::optional<std::string> decodeBase64(std::string_view text) {
  return decode(text, /*escaped=*/false);
}

std::optional<std::string> decodeEscapedBase64(std::string_view json) {
  return decode(json, /*escaped=*/true);
}

}  // namespace tervain
