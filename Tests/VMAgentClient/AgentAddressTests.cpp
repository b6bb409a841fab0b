#include <gtest/gtest.h>

#include "VMAgentClient/AgentAddress.h"

namespace tervain {
namespace {

TEST(AgentAddress, ReadsWhatNamesAnAgentAndNothingElse) {
  const std::pair<std::string_view, AgentAddress> valid[] = {
      {"unix:a:b", UnixAddress{"a:b"}},
      {"vsock:3", VsockAddress{3, AgentWire::port}},
      {"vsock:3:99", VsockAddress{3, 99}},
      {"vsock:4294967294:0", VsockAddress{4294967294, 0}}};
  for (const auto& [text, address] : valid) {
    EXPECT_EQ(parseAgentAddress(text), address) << text;
    EXPECT_EQ(parseAgentAddress(toString(address)), address) << text;
  }
  for (const char* text :
       {"", "/run/agent.sock", "unix:", "vsock:", "vsock:3:", "vsock::99", "vsock:3:99:1",
        "vsock:-1", "vsock:0x3", "vsock: 3", "vsock:4294967295", "vsock:3:4294967296"}) {
    EXPECT_EQ(parseAgentAddress(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace tervain
