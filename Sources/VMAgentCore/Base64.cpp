#include "VMAgentCore/Base64.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

#include "VMAgentCore/Base64Digits.h"

namespace tervain {
namespace {

constexpr std::string_view alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::size_t pairCount = 4096;

/// The two digits of every 12-bit value.
constexpr std::array<std::array<char, 2>, pairCount> makePairs() {
  std::array<std::array<char, 2>, pairCount> pairs{};
  for (std::size_t value = 0; value < pairCount; ++value) {
    pairs[value] = {alphabet[value >> 6U], alphabet[value & 63U]};
  }
  return pairs;
}

constexpr auto pairs = makePairs();

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

void putPair(char* out, std::uint64_t bits) {
  std::memcpy(out, pairs[bits & 0xFFFU].data(), 2);
}

/// Eight bytes as a number, the first being the highest.
std::uint64_t bigEndian(const char* bytes) {
  std::uint64_t value = 0;
  std::memcpy(&value, bytes, sizeof value);
  return __builtin_bswap64(value);
}

/// The last three bytes or fewer, with their padding.
char* putTail(char* out, std::string_view tail) {
  std::uint64_t group = 0;
  for (std::size_t i = 0; i < 3; ++i) {
    group = group << 8U | (i < tail.size() ? byteAt(tail, i) : 0);
  }
  putPair(out, group >> 12U);
  putPair(out + 2, group);
  std::fill(out + 1 + tail.size(), out + 4, '=');
  return out + 4;
}

/// How many bytes are encoded at a time, a multiple of 3: little enough for the text to be in the
/// nearest cache still when its slashes are looked for.
constexpr std::size_t blockSize = 3072;

/// Encodes a block, slashes as they are.
char* putBlock(char* out, std::string_view block) {
  const std::size_t done = encodeDigitsFast(out, block);
  out += done / 3 * 4;
  block.remove_prefix(done);
  // Six bytes a step; eight are read.
  for (; block.size() >= 8; block.remove_prefix(6), out += 8) {
    const std::uint64_t bits = bigEndian(block.data());
    putPair(out, bits >> 52U);
    putPair(out + 2, bits >> 40U);
    putPair(out + 4, bits >> 28U);
    putPair(out + 6, bits >> 16U);
  }
  while (!block.empty()) {
    const std::string_view tail = block.substr(0, 3);
    out = putTail(out, tail);
    block.remove_prefix(tail.size());
  }
  return out;
}

/// Slashes are rare in most data, so looking for them afterwards is cheaper than watching out for
/// them at every digit.
void appendEscaped(std::string& json, std::string_view text) {
  for (std::size_t slash = 0; (slash = text.find('/')) != std::string_view::npos;) {
    json.append(text.substr(0, slash)).append("\\/");
    text.remove_prefix(slash + 1);
  }
  json.append(text);
}

std::uint32_t digitAt(std::string_view text, std::size_t index) {
  return digitValues[static_cast<unsigned char>(text[index])];
}

}  // namespace

void appendBase64(std::string& json, std::string_view bytes) {
  json.reserve(json.size() + (bytes.size() + 2) / 3 * 4);
  std::array<char, blockSize / 3 * 4> text;  // NOLINT(*-member-init): written before it is read
  while (!bytes.empty()) {
    const std::string_view block = bytes.substr(0, blockSize);
    const char* end = putBlock(text.data(), block);
    appendEscaped(json, {text.data(), static_cast<std::size_t>(end - text.data())});
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
