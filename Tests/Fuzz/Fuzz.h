#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// A fuzz target: runs the code under test on one input, and aborts when what it does is wrong.
/// Each is a program of its own, driven by libFuzzer or, over its seeds, by Replay.cpp.
// NOLINTNEXTLINE(readability-identifier-naming): libFuzzer chose it
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace tervain::fuzz {

inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

/// Aborts, saying what is wrong, unless `holds`.
void require(bool holds, std::string_view what);

/// The rest of an input cut up as its first line says: each character there is the size of a piece,
/// from a space for 1 on, in turn. One piece if that line is empty.
std::vector<std::string_view> pieces(std::string_view input);

/// All that the pieces hold.
std::string joined(const std::vector<std::string_view>& pieces);

/// What a fatal error becomes in targets that have `FatalErrors.cpp`, where it may be right.
struct FatalError {
  std::string why;
};

/// The descriptor that the next `open` would give: it rises when one leaks.
int nextDescriptor();

}  // namespace tervain::fuzz
