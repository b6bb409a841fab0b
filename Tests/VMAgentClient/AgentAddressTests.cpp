#include <gtest/gtest.h>

#include "VMAgentClient/AgentAddress.h"

namespace tervain {
namespace {

TEST(AgentAddress, ReadsWhatNamesAnAgentAndNothingElse) {
  const struct {
    std::string_view text;
    std::optional<AgentAddress> expected;
  } cases[] = {
      {"unix:/run/agent.sock", UnixAddress{"/run/agent.sock"}},
      {"unix:a:b", UnixAddress{"a:b"}},
      {"vsock:3", VsockAddress{3, AgentWire::port}},
      {"vsock:3:99", VsockAddress{3, 99}},
      {"vsock:4294967294:0", VsockAddress{4294967294, 0}},
      {"", std::nullopt},
      {"/run/agent.sock", std::nullopt},
      {"unix:", std::nullopt},
      {"vsock:", std::nullopt},
      {"vsock:3:", std::nullopt},
      {"vsock::99", std::nullopt},
      {"vsock:3:99:1", std::nullopt},
      {"vsock:-1", std::nullopt},
      {"vsock:0x3", std::nullopt},
      {"vsock: 3", std::nullopt},
      {"vsock:4294967295", std::nullopt},
      {"vsock:3:4294967296", std::nullopt},
  };
  for (const auto& [text, expected] : cases) {
    const auto address = parseAgentAddress(text);
    EXPECT_EQ(address, expected) << text;
    if (address) {
      EXPECT_EQ(parseAgentAddress(toString(*address)), address);
    }
  }
}

}  // namespace
}  // namespace tervain
