#include "VMAgentCore/Base64Digits.h"

#include <cpuid.h>
#include <immintrin.h>

namespace tervain {
namespace {

// Twelve bytes become sixteen digits at a time.
constexpr std::size_t stepIn = 12;
constexpr std::size_t stepOut = 16;

/// The 6-bit values of the first twelve bytes, one a byte.
[[gnu::target("ssse3")]] __m128i split(__m128i bytes) {
  // Each group abc of three bytes is laid out as b a c b, so that all of its values can be shifted
  // into place within 16-bit halves: two of them by the one multiplication, two by the other.
  const __m128i groups =
      _mm_shuffle_epi8(bytes, _mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10));
  const __m128i firstAndThird = _mm_mulhi_epu16(_mm_and_si128(groups, _mm_set1_epi32(0x0FC0FC00)),
                                                _mm_set1_epi32(0x04000040));
  const __m128i secondAndFourth = _mm_mullo_epi16(_mm_and_si128(groups, _mm_set1_epi32(0x003F03F0)),
                                                  _mm_set1_epi32(0x01000010));
  return _mm_or_si128(firstAndThird, secondAndFourth);
}

/// The digits of 6-bit values. Their characters come in ranges, each a constant away from its
/// values: the range's number (0 for a to z, 1 to 10 for the digits, 11, 12, and 13 for A to Z) is
/// looked up for the distance.
[[gnu::target("ssse3")]] __m128i translate(__m128i values) {
  const __m128i fromLowerCaseOn = _mm_subs_epu8(values, _mm_set1_epi8(51));
  const __m128i upperCase =
      _mm_and_si128(_mm_cmpgt_epi8(_mm_set1_epi8(26), values), _mm_set1_epi8(13));
  const __m128i distances =
      _mm_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                    '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0);
  return _mm_add_epi8(values,
                      _mm_shuffle_epi8(distances, _mm_or_si128(fromLowerCaseOn, upperCase)));
}

[[gnu::target("ssse3")]] std::size_t encode(char* out, std::string_view bytes) {
  std::size_t done = 0;
  // A step loads sixteen bytes, of which it uses twelve.
  for (; bytes.size() - done >= sizeof(__m128i); done += stepIn, out += stepOut) {
    const auto* in = reinterpret_cast<const __m128i*>(bytes.data() + done);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), translate(split(_mm_loadu_si128(in))));
  }
  return done;
}

/// Asked of the processor itself: the compiler's own way takes a library that not every toolchain
/// brings along.
bool hasSSSE3() {
  unsigned a = 0;
  unsigned b = 0;
  unsigned c = 0;
  unsigned d = 0;
  return __get_cpuid(1, &a, &b, &c, &d) != 0 && (c & bit_SSSE3) != 0;
}

}  // namespace

std::size_t encodeDigitsFast(char* out, std::string_view bytes) {
  static const bool supported = hasSSSE3();
  return supported ? encode(out, bytes) : 0;
}

}  // namespace tervain
