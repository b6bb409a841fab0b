// Lines, however the bytes arrive and are asked for, against all of them at once.
#include "Fuzz/Fuzz.h"
#include "VMAgentCore/LineSplitBuffer.h"

using namespace tervain;

namespace {

/// Takes the first line off a text, if it has one that is complete.
std::optional<std::string_view> takeLine(std::string_view& text) {
  const std::size_t end = text.find('\n');
  if (end == std::string_view::npos) {
    return std::nullopt;
  }
  std::string_view line = text.substr(0, end);
  text.remove_prefix(end + 1);
  if (!line.empty() && line.back() == '\r') {
    line.remove_suffix(1);
  }
  return line;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string arrived;
  std::size_t taken = 0;
  LineSplitBuffer buffer;
  for (const std::string_view piece : fuzz::pieces(fuzz::textOf(data, size))) {
    buffer.append(piece);
    arrived += piece;
    std::string_view rest = std::string_view(arrived).substr(taken);
    // Odd pieces leave lines behind for later.
    for (std::size_t limit = piece.size() % 2 == 0 ? SIZE_MAX : 1; limit > 0; --limit) {
      const auto expected = takeLine(rest);
      fuzz::require(buffer.next() == expected, "another line than expected");
      if (!expected) {
        break;
      }
    }
    taken = arrived.size() - rest.size();
    fuzz::require(buffer.pendingBytes() == rest.size(), "another number of pending bytes");
    if (piece.size() % 3 == 0) {
      LineSplitBuffer moved = std::move(buffer);
      fuzz::require(buffer.pendingBytes() == 0,
                    "a moved-from buffer is not as good as new");  // NOLINT(*-use-after-move)
      buffer = std::move(moved);
    }
  }
  return 0;
}
