// The conformance run against the real executable, and against one that is wrong.

#include <gtest/gtest.h>

#include <filesystem>

#include "Support/AgentProcess.h"

namespace tervain {
namespace {

using test::AgentProcess;
using test::TempDir;

test::Ended conform(const AgentProcess& agent) {
  return test::runToEnd({TERVAINCTL_PATH, "conform", "unix:" + agent.socket()}, {},
                        2 * test::patience);
}

TEST(Conform, HoldsWithoutADesktop) {
  const struct {
    const char* shellDisabled;
    const char* remark;
  } cases[]{{"1", "(they run)"}, {"0", "as the agent shell is missing)"}};
  for (const auto& [shellDisabled, remark] : cases) {
    const TempDir home;
    const AgentProcess agent(
        {.environment = {{"HOME", home.path()}, {"TERVAIN_DULK_DISABLE", shellDisabled}},
         .prefix = {}});
    const auto before = agent.footprint();
    const test::Ended run = conform(agent);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.err.find(remark), std::string::npos) << run.err;
    EXPECT_TRUE(std::filesystem::is_empty(home.path()));
    EXPECT_TRUE(test::eventually([&] { return agent.footprint().within(before); }))
        << testing::PrintToString(agent.footprint());
  }
}

TEST(Conform, NamesTheRowThatFails) {
  std::string program = test::textOf(AGENT_PATH);
  const std::string right = "malformed request (want";
  const std::size_t at = program.find(right);
  ASSERT_NE(at, std::string::npos);
  program.replace(at, right.size(), "malformed request (wish");
  const TempDir dir;
  dir.write("agent", program);
  std::filesystem::permissions(dir.path("agent"), std::filesystem::perms::owner_all);
  const AgentProcess agent({.environment = {{"HOME", dir.path()}}, .prefix = {dir.path("agent")}});
  const test::Ended run = conform(agent);
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("FAILED   protocol       lines that are no request are told so\n"),
            std::string::npos)
      << run.err;
  EXPECT_NE(run.err.find("(wish one JSON object"), std::string::npos) << run.err;
}

}  // namespace
}  // namespace tervain
