#include "VMAgentCore/Base64.h"

#include <array>
#include <cstdint>
#include <cstring>

namespace tervain {
namespace {

constexpr std::string_view alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::size_t pairCount = 4096;

/// The text of every 12-bit value, that is of two base64 digits: two characters, or up to four
/// when a slash among them is escaped. The encoder copies all four and advances by the length.
struct PairTable {
  std::array<std::array<char, 4>, pairCount> text{};
  std::array<std::uint8_t, pairCount> length{};
};

constexpr PairTable makePairTable() {
  PairTable table;
  for (std::size_t pair = 0; pair < pairCount; ++pair) {
    std::uint8_t length = 0;
    for (const std::size_t digit : {pair >> 6U, pair & 63U}) {
      if (alphabet[digit] == '/') {
        table.text[pair][length++] = '\\';
      }
      table.text[pair][length++] = alphabet[digit];
    }
    table.length[pair] = length;
  }
  return table;
}

constexpr PairTable pairs = makePairTable();

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

std::uint32_t byteAt(std::string_view bytes, std::size_t index) {
  return static_cast<unsigned char>(bytes[index]);
}

char* putPair(char* out, std::size_t pair) {
  std::memcpy(out, pairs.text[pair].data(), 4);
  return out + pairs.length[pair];
}

/// The last one or two bytes, with their padding.
char* putTail(char* out, std::string_view tail) {
  if (tail.size() == 1) {
    out = putPair(out, byteAt(tail, 0) << 4U);
    *out++ = '=';
  } else {
    const std::uint32_t group = byteAt(tail, 0) << 10U | byteAt(tail, 1) << 2U;
    out = putPair(out, group >> 6U);
    const char last = alphabet[group & 63U];  // a multiple of 4, so never the slash
    *out++ = last;
  }
  *out++ = '=';
  return out;
}

/// How many bytes are encoded at a time, a multiple of 3: the text then passes through a buffer
/// that stays in the nearest cache, and the string grows without being zeroed first.
constexpr std::size_t blockSize = 3 * 512;

/// Room for a block in the worst case, every digit an escaped slash, and for putPair's overhang.
constexpr std::size_t blockTextSize = blockSize / 3 * 8 + 4;

char* putBlock(char* out, std::string_view bytes) {
  std::size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    const std::uint32_t group =
        byteAt(bytes, i) << 16U | byteAt(bytes, i + 1) << 8U | byteAt(bytes, i + 2);
    out = putPair(out, group >> 12U);
    out = putPair(out, group & 0xFFFU);
  }
  return i < bytes.size() ? putTail(out, bytes.substr(i)) : out;
}

std::uint32_t digitAt(std::string_view text, std::size_t index) {
  return digitValues[static_cast<unsigned char>(text[index])];
}

}  // namespace

void appendBase64(std::string& json, std::string_view bytes) {
  json.reserve(json.size() + (bytes.size() + 2) / 3 * 4);
  std::array<char, blockTextSize> text;  // NOLINT(*-member-init): written before it is read
  while (!bytes.empty()) {
    const std::string_view block = bytes.substr(0, blockSize);
    json.append(text.data(), putBlock(text.data(), block));
    bytes.remove_prefix(block.size());
  }
}

std::optional<std::string> decodeBase64(std::string_view text) {
  if (text.size() % 4 != 0) {
    return std::nullopt;
  }
  std::size_t padding = 0;
  while (padding < 2 && text.ends_with('=')) {
    text.remove_suffix(1);
    ++padding;
  }
  std::string bytes(text.size() * 3 / 4, '\0');
  std::uint32_t seen = 0;  // all digits or'ed, so that one test finds an invalid one
  std::size_t in = 0;
  std::size_t out = 0;
  for (; in + 4 <= text.size(); in += 4, out += 3) {
    const std::uint32_t a = digitAt(text, in);
    const std::uint32_t b = digitAt(text, in + 1);
    const std::uint32_t c = digitAt(text, in + 2);
    const std::uint32_t d = digitAt(text, in + 3);
    seen |= a | b | c | d;
    bytes[out] = static_cast<char>(a << 2U | b >> 4U);
    bytes[out + 1] = static_cast<char>(b << 4U | c >> 2U);
    bytes[out + 2] = static_cast<char>(c << 6U | d);
  }
  if (padding > 0) {
    const std::uint32_t a = digitAt(text, in);
    const std::uint32_t b = digitAt(text, in + 1);
    const std::uint32_t c = padding == 1 ? digitAt(text, in + 2) : 0;
    seen |= a | b | c;
    bytes[out] = static_cast<char>(a << 2U | b >> 4U);
    if (padding == 1) {
      bytes[out + 1] = static_cast<char>(b << 4U | c >> 2U);
    }
    const std::uint32_t strayBits = padding == 1 ? c & 0x3U : b & 0xFU;
    if (strayBits != 0) {
      return std::nullopt;
    }
  }
  return (seen & 0xC0U) == 0 ? std::optional(std::move(bytes)) : std::nullopt;
}

}  // namespace tervain
