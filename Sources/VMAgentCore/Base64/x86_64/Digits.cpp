#if defined(__x86_64__)

#include "VMAgentCore/Base64/Digits.h"

#include <cpuid.h>
#include <immintrin.h>

namespace tervain::Base64 {
namespace {

/// Twelve bytes are sixteen digits.
constexpr std::size_t stepBytes = 12;
constexpr std::size_t stepDigits = 16;

constexpr auto escapes = makeEscapes();
constexpr auto others = makeOthers();

[[gnu::target("ssse3")]] __m128i load(const void* from) {
  return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

[[gnu::target("ssse3")]] void store(char* to, __m128i vector) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(to), vector);
}

/// Which bytes of a vector equal a character, by bits.
[[gnu::target("ssse3")]] unsigned find(char c, __m128i in) {
  return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(in, _mm_set1_epi8(c))));
}

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

/// Writes the eight digits of a vector's first half with backslashes before a set of them.
[[gnu::target("ssse3,popcnt")]] char* putEscaped(char* out, __m128i digits, unsigned slashes) {
  const __m128i withBackslash = _mm_unpacklo_epi64(digits, _mm_set1_epi8('\\'));
  store(out, _mm_shuffle_epi8(withBackslash, load(&escapes[slashes])));
  return out + 8 + _mm_popcnt_u32(slashes);
}

[[gnu::target("ssse3,popcnt")]] Progress encode(char* const out, std::string_view bytes) {
  std::size_t read = 0;
  char* end = out;
  // A step loads sixteen bytes, of which it uses twelve.
  for (; bytes.size() - read >= sizeof(__m128i); read += stepBytes) {
    const __m128i digits = translate(split(load(bytes.data() + read)));
    const unsigned slashes = find('/', digits);
    end = putEscaped(end, digits, slashes & 0xFFU);
    end = putEscaped(end, _mm_unpackhi_epi64(digits, digits), slashes >> 8U);
  }
  return {read, static_cast<std::size_t>(end - out)};
}

// The same with vectors of two halves, each of which does what the short ones do. (The backslashes
// are put in, and taken out, by eight digits whatever the width.)

[[gnu::target("avx2")]] __m256i loadWide(const void* from) {
  return _mm256_loadu_si256(static_cast<const __m256i*>(from));
}

/// Which bytes of a wide vector equal a character, by bits.
[[gnu::target("avx2")]] unsigned find(char c, __m256i in) {
  return static_cast<unsigned>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(in, _mm256_set1_epi8(c))));
}

[[gnu::target("avx2")]] __m256i twice(__m128i half) {
  return _mm256_broadcastsi128_si256(half);
}

[[gnu::target("avx2")]] __m256i split(__m256i bytes) {
  const __m256i groups = _mm256_shuffle_epi8(
      bytes, twice(_mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10)));
  const __m256i firstAndThird = _mm256_mulhi_epu16(
      _mm256_and_si256(groups, _mm256_set1_epi32(0x0FC0FC00)), _mm256_set1_epi32(0x04000040));
  const __m256i secondAndFourth = _mm256_mullo_epi16(
      _mm256_and_si256(groups, _mm256_set1_epi32(0x003F03F0)), _mm256_set1_epi32(0x01000010));
  return _mm256_or_si256(firstAndThird, secondAndFourth);
}

[[gnu::target("avx2")]] __m256i translate(__m256i values) {
  const __m256i fromLowerCaseOn = _mm256_subs_epu8(values, _mm256_set1_epi8(51));
  const __m256i upperCase =
      _mm256_and_si256(_mm256_cmpgt_epi8(_mm256_set1_epi8(26), values), _mm256_set1_epi8(13));
  const __m256i distances =
      twice(_mm_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                          '0' - 52, '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0));
  return _mm256_add_epi8(
      values, _mm256_shuffle_epi8(distances, _mm256_or_si256(fromLowerCaseOn, upperCase)));
}

[[gnu::target("avx2,popcnt")]] Progress encodeWide(char* const out, std::string_view bytes) {
  std::size_t read = 0;
  char* end = out;
  for (; bytes.size() - read >= stepBytes + sizeof(__m128i); read += 2 * stepBytes) {
    const char* const at = bytes.data() + read;
    const __m256i digits = translate(split(_mm256_set_m128i(load(at + stepBytes), load(at))));
    const unsigned slashes = find('/', digits);
    const __m128i first = _mm256_castsi256_si128(digits);
    const __m128i second = _mm256_extracti128_si256(digits, 1);
    end = putEscaped(end, first, slashes & 0xFFU);
    end = putEscaped(end, _mm_unpackhi_epi64(first, first), slashes >> 8U & 0xFFU);
    end = putEscaped(end, second, slashes >> 16U & 0xFFU);
    end = putEscaped(end, _mm_unpackhi_epi64(second, second), slashes >> 24U);
  }
  return {read, static_cast<std::size_t>(end - out)};
}

/// Takes the set of characters out of the eight in a vector's first half.
[[gnu::target("ssse3,popcnt")]] char* putOthers(char* out, __m128i characters, unsigned set) {
  const __m128i kept = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(&others[set]));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_shuffle_epi8(characters, kept));
  return out + 8 - _mm_popcnt_u32(set);
}

[[gnu::target("ssse3,popcnt")]] Progress unescape(char* const out, std::string_view text) {
  std::size_t read = 0;
  char* end = out;
  // A step looks at the character behind its own, too.
  for (; text.size() - read > sizeof(__m128i); read += sizeof(__m128i)) {
    const char* const at = text.data() + read;
    const __m128i characters = load(at);
    const unsigned backslashes = find('\\', characters);
    if ((backslashes & ~find('/', load(at + 1))) != 0) {
      break;
    }
    end = putOthers(end, characters, backslashes & 0xFFU);
    end = putOthers(end, _mm_unpackhi_epi64(characters, characters), backslashes >> 8U);
  }
  return {read, static_cast<std::size_t>(end - out)};
}

[[gnu::target("avx2,popcnt")]] Progress unescapeWide(char* const out, std::string_view text) {
  std::size_t read = 0;
  char* end = out;
  for (; text.size() - read > sizeof(__m256i); read += sizeof(__m256i)) {
    const char* const at = text.data() + read;
    const __m256i characters = loadWide(at);
    const unsigned backslashes = find('\\', characters);
    if ((backslashes & ~find('/', loadWide(at + 1))) != 0) {
      break;
    }
    const __m128i first = _mm256_castsi256_si128(characters);
    const __m128i second = _mm256_extracti128_si256(characters, 1);
    end = putOthers(end, first, backslashes & 0xFFU);
    end = putOthers(end, _mm_unpackhi_epi64(first, first), backslashes >> 8U & 0xFFU);
    end = putOthers(end, second, backslashes >> 16U & 0xFFU);
    end = putOthers(end, _mm_unpackhi_epi64(second, second), backslashes >> 24U);
  }
  return {read, static_cast<std::size_t>(end - out)};
}

// Which characters are digits depends on both halves of their codes: a bit stands for what is wrong
// with some lower halves, and each upper half has the bits that matter to it.

[[gnu::target("ssse3")]] __m128i wrongBelow() {
  return _mm_setr_epi8(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x13, 0x1A, 0x1B,
                       0x1B, 0x1B, 0x1A);
}

[[gnu::target("ssse3")]] __m128i mattersAbove() {
  return _mm_setr_epi8(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10, 0x10, 0x10, 0x10,
                       0x10, 0x10, 0x10);
}

/// The way back from a range of characters to its values: the upper half names the range, and "/",
/// which shares its one with "+", is moved to the unused one below.
[[gnu::target("ssse3")]] __m128i distancesBack() {
  return _mm_setr_epi8(0, 63 - '/', 62 - '+', 52 - '0', -'A', -'A', 26 - 'a', 26 - 'a', 0, 0, 0, 0,
                       0, 0, 0, 0);
}

/// Where the bytes are once each group of four values has been put together in 32 bits.
[[gnu::target("ssse3")]] __m128i bytesOfGroups() {
  return _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1);
}

/// The 6-bit values of sixteen digits. False when one of them is none.
[[gnu::target("ssse3")]] bool values(__m128i digits, __m128i& result) {
  const __m128i mask = _mm_set1_epi8(0x0F);
  const __m128i upper = _mm_and_si128(_mm_srli_epi16(digits, 4), mask);
  const __m128i wrong = _mm_and_si128(_mm_shuffle_epi8(wrongBelow(), _mm_and_si128(digits, mask)),
                                      _mm_shuffle_epi8(mattersAbove(), upper));
  if (_mm_movemask_epi8(_mm_cmpeq_epi8(wrong, _mm_setzero_si128())) != 0xFFFF) {
    return false;
  }
  const __m128i range = _mm_add_epi8(upper, _mm_cmpeq_epi8(digits, _mm_set1_epi8('/')));
  result = _mm_add_epi8(digits, _mm_shuffle_epi8(distancesBack(), range));
  return true;
}

[[gnu::target("ssse3")]] Progress decode(char* const out, std::string_view digits) {
  std::size_t read = 0;
  char* end = out;
  for (; digits.size() - read >= stepDigits; read += stepDigits, end += stepBytes) {
    __m128i sixes;
    if (!values(load(digits.data() + read), sixes)) {
      break;
    }
    const __m128i twelves = _mm_maddubs_epi16(sixes, _mm_set1_epi32(0x01400140));
    const __m128i groups = _mm_madd_epi16(twelves, _mm_set1_epi32(0x00011000));
    store(end, _mm_shuffle_epi8(groups, bytesOfGroups()));
  }
  return {read, static_cast<std::size_t>(end - out)};
}

[[gnu::target("avx2")]] bool values(__m256i digits, __m256i& result) {
  const __m256i mask = _mm256_set1_epi8(0x0F);
  const __m256i upper = _mm256_and_si256(_mm256_srli_epi16(digits, 4), mask);
  const __m256i below = _mm256_shuffle_epi8(twice(wrongBelow()), _mm256_and_si256(digits, mask));
  if (_mm256_testz_si256(below, _mm256_shuffle_epi8(twice(mattersAbove()), upper)) == 0) {
    return false;
  }
  const __m256i range = _mm256_add_epi8(upper, _mm256_cmpeq_epi8(digits, _mm256_set1_epi8('/')));
  result = _mm256_add_epi8(digits, _mm256_shuffle_epi8(twice(distancesBack()), range));
  return true;
}

[[gnu::target("avx2")]] Progress decodeWide(char* const out, std::string_view digits) {
  std::size_t read = 0;
  char* end = out;
  for (; digits.size() - read >= 2 * stepDigits; read += 2 * stepDigits, end += 2 * stepBytes) {
    __m256i sixes;
    if (!values(loadWide(digits.data() + read), sixes)) {
      break;
    }
    const __m256i twelves = _mm256_maddubs_epi16(sixes, _mm256_set1_epi32(0x01400140));
    const __m256i groups = _mm256_madd_epi16(twelves, _mm256_set1_epi32(0x00011000));
    const __m256i bytes = _mm256_shuffle_epi8(groups, twice(bytesOfGroups()));
    store(end, _mm256_castsi256_si128(bytes));
    store(end + stepBytes, _mm256_extracti128_si256(bytes, 1));
  }
  return {read, static_cast<std::size_t>(end - out)};
}

enum class Level { none, ssse3, avx2 };

/// Asked of the processor itself: the compiler's own way takes a library that not every toolchain
/// brings along.
[[gnu::target("xsave")]] Level ask() {
  unsigned a = 0;
  unsigned b = 0;
  unsigned c = 0;
  unsigned d = 0;
  constexpr unsigned needed = bit_SSSE3 | bit_POPCNT;
  if (__get_cpuid(1, &a, &b, &c, &d) == 0 || (c & needed) != needed) {
    return Level::none;
  }
  // Wide registers are of use only where the system keeps them for each thread.
  constexpr unsigned wideRegisters = 6;
  const bool kept = (c & bit_OSXSAVE) != 0 && (_xgetbv(0) & wideRegisters) == wideRegisters;
  const bool wide = kept && __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & bit_AVX2) != 0;
  return wide ? Level::avx2 : Level::ssse3;
}

Level level() {
  static const Level answer = ask();
  return answer;
}

using Pass = Progress (*)(char* out, std::string_view in);

/// Does what this processor has vectors for.
Progress run(Pass wide, Pass narrow, char* out, std::string_view in) {
  switch (level()) {
    case Level::avx2:
      return wide(out, in);
    case Level::ssse3:
      return narrow(out, in);
    default:
      return {};
  }
}

}  // namespace

Progress encodeFast(char* out, std::string_view bytes) {
  return run(encodeWide, encode, out, bytes);
}

Progress decodeFast(char* out, std::string_view digits) {
  return run(decodeWide, decode, out, digits);
}

Progress unescapeFast(char* out, std::string_view text) {
  return run(unescapeWide, unescape, out, text);
}

}  // namespace tervain::Base64

#endif
