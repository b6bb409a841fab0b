#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

/// What a processor has a fast way for. Each processor's folder implements it, and a processor
/// without one has that of AnyCPU. All of them do as much of the beginning of their input as they
/// can and leave the rest, which may be everything, to plain code.
namespace tervain::Base64 {

struct Progress {
  std::size_t read = 0;
  std::size_t written = 0;
};

/// How many bytes behind those it has written a function may touch.
inline constexpr std::size_t overrun = 16;

/// Encodes groups of three bytes, each "/" as "\/".
Progress encodeFast(char* out, std::string_view bytes);

/// Decodes groups of four digits, up to anything that is none.
Progress decodeFast(char* out, std::string_view digits);

/// Copies text without the backslashes that stand before slashes, up to any other backslash.
Progress unescapeFast(char* out, std::string_view text);

// A processor that can rearrange a vector's bytes by a table inserts or removes the backslashes of
// eight characters at once, wherever they are: a test for each that random data makes at random
// would cost more than all the rest.

using Lanes = std::array<std::uint8_t, 16>;

/// For every set of eight digits that are slashes, by bits: the digits' numbers in order, an 8
/// (what is to stand there: a backslash) before each of the set. What is behind them means nothing.
constexpr std::array<Lanes, 256> makeEscapes() {
  std::array<Lanes, 256> escapes{};
  for (unsigned set = 0; set < escapes.size(); ++set) {
    std::size_t end = 0;
    for (std::uint8_t digit = 0; digit < 8; ++digit) {
      if ((set >> digit & 1U) != 0) {
        escapes[set][end++] = 8;
      }
      escapes[set][end++] = digit;
    }
  }
  return escapes;
}

/// For every set of eight characters that are backslashes, by bits: the numbers of the others.
constexpr std::array<std::array<std::uint8_t, 8>, 256> makeOthers() {
  std::array<std::array<std::uint8_t, 8>, 256> others{};
  for (unsigned set = 0; set < others.size(); ++set) {
    std::size_t end = 0;
    for (std::uint8_t character = 0; character < 8; ++character) {
      if ((set >> character & 1U) == 0) {
        others[set][end++] = character;
      }
    }
  }
  return others;
}

}  // namespace tervain::Base64
