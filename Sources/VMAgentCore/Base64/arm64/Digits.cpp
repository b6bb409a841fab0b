#if defined(__aarch64__)

#include "VMAgentCore/Base64/Digits.h"

#include <arm_neon.h>

namespace tervain::Base64 {
namespace {

constexpr auto escapes = makeEscapes();
constexpr auto others = makeOthers();

constexpr std::uint8_t alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// The value of every character below 128; all bits for one that is no digit.
constexpr std::array<std::uint8_t, 128> makeValues() {
  std::array<std::uint8_t, 128> values{};
  values.fill(0xFF);
  for (std::uint8_t value = 0; value < 64; ++value) {
    values[alphabet[value]] = value;
  }
  return values;
}

constexpr auto values = makeValues();

const std::uint8_t* bytesOf(std::string_view text) {
  return reinterpret_cast<const std::uint8_t*>(text.data());
}

std::uint8_t* bytesAt(char* text) {
  return reinterpret_cast<std::uint8_t*>(text);
}

/// Which of eight lanes are all ones, by bits, and how many.
struct Set {
  std::uint8_t bits;
  std::uint8_t count;
};

Set setOf(uint8x8_t lanes) {
  constexpr std::uint64_t bitOfEachLane = 0x8040201008040201;
  return {vaddv_u8(vand_u8(lanes, vcreate_u8(bitOfEachLane))), vaddv_u8(vshr_n_u8(lanes, 7))};
}

/// Writes eight digits with backslashes before the slashes.
char* putEscaped(char* out, uint8x8_t digits) {
  const auto [slashes, count] = setOf(vceq_u8(digits, vdup_n_u8('/')));
  const uint8x16_t withBackslash = vcombine_u8(digits, vdup_n_u8('\\'));
  vst1q_u8(bytesAt(out), vqtbl1q_u8(withBackslash, vld1q_u8(escapes[slashes].data())));
  return out + 8 + count;
}

char* putEscaped(char* out, uint16x4x2_t digits) {
  out = putEscaped(out, vreinterpret_u8_u16(digits.val[0]));
  return putEscaped(out, vreinterpret_u8_u16(digits.val[1]));
}

}  // namespace

Progress encodeFast(char* out, std::string_view bytes) {
  constexpr std::size_t step = 24;
  const uint8x16x4_t digitOf = vld1q_u8_x4(alphabet);
  const uint8x8_t six = vdup_n_u8(63);
  std::size_t read = 0;
  char* end = out;
  for (; bytes.size() - read >= step; read += step) {
    // The first, second and third bytes of eight groups, and then their four digits.
    const uint8x8x3_t group = vld3_u8(bytesOf(bytes) + read);
    const uint8x8_t second = vsli_n_u8(vshr_n_u8(group.val[1], 4), group.val[0], 4);
    const uint8x8_t third = vsli_n_u8(vshr_n_u8(group.val[2], 6), group.val[1], 2);
    const uint8x8_t a = vqtbl4_u8(digitOf, vshr_n_u8(group.val[0], 2));
    const uint8x8_t b = vqtbl4_u8(digitOf, vand_u8(second, six));
    const uint8x8_t c = vqtbl4_u8(digitOf, vand_u8(third, six));
    const uint8x8_t d = vqtbl4_u8(digitOf, vand_u8(group.val[2], six));
    const uint8x8x2_t ab = vzip_u8(a, b);
    const uint8x8x2_t cd = vzip_u8(c, d);
    for (std::size_t half = 0; half < 2; ++half) {
      end = putEscaped(
          end, vzip_u16(vreinterpret_u16_u8(ab.val[half]), vreinterpret_u16_u8(cd.val[half])));
    }
  }
  return {read, static_cast<std::size_t>(end - out)};
}

Progress decodeFast(char* out, std::string_view digits) {
  constexpr std::size_t stepDigits = 64;
  constexpr std::size_t stepBytes = 48;
  const uint8x16x4_t lower = vld1q_u8_x4(values.data());
  const uint8x16x4_t upper = vld1q_u8_x4(values.data() + 64);
  std::size_t read = 0;
  std::size_t written = 0;
  for (; digits.size() - read >= stepDigits; read += stepDigits, written += stepBytes) {
    // The first to fourth digits of sixteen groups. A table's look-up beyond its end gives zero,
    // or leaves what is there.
    uint8x16x4_t group = vld4q_u8(bytesOf(digits) + read);
    uint8x16_t seen = vdupq_n_u8(0);
    for (uint8x16_t& digit : group.val) {
      const uint8x16_t value =
          vqtbx4q_u8(vqtbl4q_u8(lower, digit), upper, veorq_u8(digit, vdupq_n_u8(64)));
      seen = vorrq_u8(seen, vorrq_u8(value, digit));
      digit = value;
    }
    if (vmaxvq_u8(seen) >= 128) {
      break;
    }
    const uint8x16x3_t bytes{vsliq_n_u8(vshrq_n_u8(group.val[1], 4), group.val[0], 2),
                             vsliq_n_u8(vshrq_n_u8(group.val[2], 2), group.val[1], 4),
                             vsliq_n_u8(group.val[3], group.val[2], 6)};
    vst3q_u8(bytesAt(out) + written, bytes);
  }
  return {read, written};
}

Progress unescapeFast(char* out, std::string_view text) {
  constexpr std::size_t step = 8;
  std::size_t read = 0;
  char* end = out;
  // A step looks at the character behind its own, too.
  for (; text.size() - read > step; read += step) {
    const std::uint8_t* const at = bytesOf(text) + read;
    const uint8x8_t characters = vld1_u8(at);
    const uint8x8_t backslashes = vceq_u8(characters, vdup_n_u8('\\'));
    const uint8x8_t slashesBehind = vceq_u8(vld1_u8(at + 1), vdup_n_u8('/'));
    if (vget_lane_u64(vreinterpret_u64_u8(vbic_u8(backslashes, slashesBehind)), 0) != 0) {
      break;
    }
    const auto [set, count] = setOf(backslashes);
    vst1_u8(bytesAt(end), vtbl1_u8(characters, vld1_u8(others[set].data())));
    end += step - count;
  }
  return {read, static_cast<std::size_t>(end - out)};
}

}  // namespace tervain::Base64

#endif
