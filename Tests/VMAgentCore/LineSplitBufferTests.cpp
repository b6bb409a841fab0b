#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "VMAgentCore/LineSplitBuffer.h"

namespace tervain {
namespace {

TEST(LineSplitBuffer, CutsAtLineFeedsWhereverTheChunksEnd) {
  using Strings = std::vector<std::string>;
  const std::tuple<Strings, Strings, std::size_t> cases[] = {
      {{"one\ntwo\n"}, {"one", "two"}, 0},
      {{"o", "ne\r", "\nrest"}, {"one"}, 4},
      {{"\n\r\n"}, {"", ""}, 0},
      {{"a\r\r\n", "b\rc\n"}, {"a\r", "b\rc"}, 0},
      {{"a\n", "", "b"}, {"a"}, 1},
      {{std::string("nul\0inside\n", 11)}, {std::string("nul\0inside", 10)}, 0},
  };
  for (const auto& [chunks, expected, pending] : cases) {
    LineSplitBuffer buffer;
    std::vector<std::string> lines;
    for (const std::string& chunk : chunks) {
      buffer.append(chunk);
      while (const auto line = buffer.next()) {
        lines.emplace_back(*line);
      }
    }
    EXPECT_EQ(lines, expected);
    EXPECT_EQ(buffer.pendingBytes(), pending);
  }
}

TEST(LineSplitBuffer, HandsOverWhatIsPendingWhenMoved) {
  LineSplitBuffer buffer;
  buffer.append("first\nsecond\nthi");
  ASSERT_EQ(buffer.next(), "first");
  LineSplitBuffer moved = std::move(buffer);
  EXPECT_EQ(moved.next(), "second");
  moved.append("rd\n");
  EXPECT_EQ(moved.next(), "third");
}

}  // namespace
}  // namespace tervain
