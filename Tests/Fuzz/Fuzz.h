#pragma once

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Support/AgentProcess.h"

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

/// What a fatal error becomes in targets that have `FatalErrors.cpp`, where it may be right.
struct FatalError {
  std::string why;
};

/// Aborts when there are more descriptors or children at its end than at its beginning.
class LeakCheck {
 public:
  LeakCheck() = default;
  LeakCheck(const LeakCheck&) = delete;
  LeakCheck& operator=(const LeakCheck&) = delete;
  ~LeakCheck() {
    const test::Footprint now = test::footprintOf(getpid());
    require(now.descriptors <= before_.descriptors, "a descriptor leaks");
    require(now.children <= before_.children, "a process is left");
  }

 private:
  test::Footprint before_ = test::footprintOf(getpid());
};

}  // namespace tervain::fuzz
