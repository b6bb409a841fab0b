#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "Support/TempDir.h"
#include "VMAgentCore/ShellSpool.h"

namespace tervain {
namespace {

using ShellSpool::drain;
using ShellSpool::DrainResult;

std::string tens(char c) {
  return std::string(10, c);
}

TEST(ShellSpool, TakesEventFilesInNameOrder) {
  const test::TempDir dir;
  dir.write("b.jsonl", tens('b'));
  dir.write("a.jsonl", tens('a'));
  dir.write("notes.txt", "no");
  dir.write("x.JSONL", "no");
  dir.write("empty.jsonl", "");
  const DrainResult expected{tens('a') + tens('b'),
                             3,
                             false,
                             {dir.path("a.jsonl"), dir.path("b.jsonl"), dir.path("empty.jsonl")}};
  EXPECT_EQ(drain(dir.path(), ShellSpool::defaultCap), expected);
  EXPECT_EQ(drain(dir.path() + "/", INT64_MAX).data, expected.data);
}

TEST(ShellSpool, StaysWithinItsBudget) {
  const test::TempDir dir;
  dir.write("1.jsonl", tens('1'));
  dir.write("2.jsonl", tens('2'));
  dir.write("3.jsonl", "33333");
  const std::tuple<std::int64_t, std::string, bool> cases[] = {
      {25, tens('1') + tens('2') + "33333", false},
      {24, tens('1') + tens('2'), true},
      {15, tens('1') + "33333", true},
      {9, "33333", true},
      {4, "", true},
      {0, "", true},
      {INT64_MIN, "", true}};
  for (const auto& [budget, data, truncated] : cases) {
    const DrainResult result = drain(dir.path(), budget);
    EXPECT_EQ(result.data, data) << budget;
    EXPECT_EQ(result.truncated, truncated) << budget;
    EXPECT_EQ(static_cast<std::size_t>(result.files), result.drainedPaths.size());
  }
}

TEST(ShellSpool, PassesOverWhatItCannotRead) {
  const test::TempDir dir;
  EXPECT_EQ(drain(dir.path("missing"), 100), DrainResult());
  dir.write("file", "x");
  EXPECT_EQ(drain(dir.path("file"), 100), DrainResult());
  EXPECT_EQ(drain("", 100), DrainResult());
  // A pipe with no writer would block whoever opens it plainly.
  ASSERT_EQ(mkfifo(dir.path("1.jsonl").c_str(), 0600), 0);
  std::filesystem::create_directory(dir.path("2.jsonl"));
  std::filesystem::create_symlink(dir.path("nowhere"), dir.path("3.jsonl"));
  dir.write("4.jsonl", "four");
  const DrainResult result = drain(dir.path(), 100);
  EXPECT_EQ(result.data, "four");
  EXPECT_FALSE(result.truncated);
}

}  // namespace
}  // namespace tervain
