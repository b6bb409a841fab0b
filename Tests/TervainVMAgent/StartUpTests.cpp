#include <gtest/gtest.h>

#include "TervainVMAgent/StartUp.h"

namespace tervain {
namespace {

TEST(StartUp, ChoosesThePort) {
  const struct {
    const char* text;
    std::uint32_t port;
  } cases[] = {
      {nullptr, 2035},  {"", 2035},      {"2036", 2036},  {"+2036", 2036},
      {"-0", 0},        {"-000", 0},     {"0", 0},        {"4294967295", 4294967295},
      {"-1", 2035},     {"-2036", 2035}, {" 2036", 2035}, {"2036 ", 2035},
      {"0x7f3", 2035},  {"+", 2035},     {"-", 2035},     {"4294967296", 2035},
      {"+-2036", 2035}, {"--0", 2035},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(choosePort(c.text), c.port) << (c.text ? c.text : "absent");
  }
}

}  // namespace
}  // namespace tervain
