#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>

#include "Support/TempDir.h"
#include "VMAgentCore/Environment.h"
#include "VMAgentCore/ShellSpool.h"

namespace tervain {
namespace {

using ShellSpool::drain;
using ShellSpool::DrainResult;

TEST(ShellSpool, TakesWhatItCanReadWithinItsBudget) {
  const test::TempDir dir;
  // A pipe with no writer would block whoever opens it plainly.
  ASSERT_EQ(mkfifo(dir.path("0.jsonl").c_str(), 0600), 0);
  std::filesystem::create_symlink(dir.path("nowhere"), dir.path("00.jsonl"));
  dir.write("1.jsonl", "1111111111");
  dir.write("2.jsonl", "2222222222");
  dir.write("3.jsonl", "33333");
  dir.write("4.jsonl", "");  // left behind when the budget is used up
  const std::string all = "1111111111222222222233333";
  const std::tuple<std::int64_t, std::string, bool> cases[] = {{26, all, false},
                                                               {25, all, true},
                                                               {24, all.substr(0, 20), true},
                                                               {15, "111111111133333", true},
                                                               {4, "", true},
                                                               {INT64_MIN, "", true}};
  for (const auto& [budget, data, truncated] : cases) {
    const DrainResult result = drain(dir.path(), budget);
    EXPECT_EQ(result.data, data) << budget;
    EXPECT_EQ(result.truncated, truncated) << budget;
    EXPECT_EQ(static_cast<std::size_t>(result.files), result.drainedPaths.size());
  }
  for (const auto& none :
       {dir.path("1.jsonl"), std::string(), dir.path() + std::string("\0x", 2)}) {
    EXPECT_EQ(drain(none, 100), DrainResult()) << none;
  }
}

TEST(ShellSpool, TakesNothingLargerThanItMayWhateverItsSizeIsSaidToBe) {
  const test::TempDir dir;
  dir.write("1.jsonl", "");
  std::filesystem::resize_file(dir.path("1.jsonl"), 1ULL << 40U);
  std::filesystem::create_symlink("/proc/self/environ", dir.path("2.jsonl"));  // said to be empty
  dir.write("3.jsonl", "3");
  EXPECT_EQ(drain(dir.path(), 2), (DrainResult{"3", 1, true, {dir.path("3.jsonl")}}));
  std::filesystem::resize_file(dir.path("1.jsonl"), ShellSpool::maxCap);
  EXPECT_EQ(drain(dir.path(), INT64_MAX).drainedPaths, std::vector{dir.path("1.jsonl")});
}

TEST(Environment, IsReadAsItIs) {
  const std::string home = homeDirectory();
  setenv("HOME", "", 1);
  EXPECT_EQ(homeDirectory().front(), '/');
  setenv("HOME", "/a=b=", 1);
  EXPECT_EQ(ShellSpool::defaultDir(), "/a=b=/Library/Caches/tervain-dulk");
  EXPECT_EQ(processEnvironment().at("HOME"), "/a=b=");
  setenv("HOME", home.c_str(), 1);
}

}  // namespace
}  // namespace tervain
