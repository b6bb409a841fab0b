// The conformance run against the real executable, and against one that is wrong.

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <set>

#include "Support/AgentProcess.h"

namespace tervain {
namespace {

using test::AgentProcess;
using test::TempDir;

test::Ended conform(const AgentProcess& agent) {
  return test::runToEnd({TERVAINCTL_PATH, "conform", "--no-desktop", "unix:" + agent.socket()}, {},
                        2 * test::patience);
}

std::set<std::string> filesIn(const TempDir& dir) {
  std::set<std::string> paths;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(dir.path())) {
    paths.insert(entry.path());
  }
  return paths;
}

TEST(Conform, HoldsWithoutADesktop) {
  const struct {
    const char* shellDisabled;
    const char* remark;
  } cases[]{{"1", "(they run)"}, {"0", "as the agent shell is missing)"}};
  for (const auto& [shellDisabled, remark] : cases) {
    const TempDir home;
    const AgentProcess agent(
        {.environment = {{"HOME", home.path()}, {"TERVAIN_DULK_DISABLE", shellDisabled}}});
    // The libraries that launch something may keep files in a home, which are theirs.
    agent.connect().ask(R"({"op":"launch_app","name":"No Such Application"})");
    const auto files = filesIn(home);
    const auto before = agent.footprint();
    const test::Ended run = conform(agent);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.err.find(remark), std::string::npos) << run.err;
    EXPECT_EQ(filesIn(home), files);
    EXPECT_TRUE(test::eventually([&] { return agent.footprint().within(before); }))
        << testing::PrintToString(agent.footprint());
  }
}

TEST(Conform, NamesTheRowThatFails) {
  const TempDir dir;
  // Compilers keep long texts in pieces, few of them shorter than this.
  const std::string spoil =
      R"(LC_ALL=C sed s/malforme/Malforme/g "$0" >"$1" && chmod +x "$1" &&
         { ! test -x /usr/bin/codesign || codesign --force --sign - "$1"; })";
  ASSERT_EQ(test::runToEnd({"/bin/sh", "-c", spoil, AGENT_PATH, dir.path("agent")}, {}).status, 0);
  // Without its shell there are no commands, which would take most of the time.
  const AgentProcess agent({.environment = {{"HOME", dir.path()}, {"TERVAIN_DULK_DISABLE", "0"}},
                            .prefix = {"/bin/sh", "-c", R"(exec "$HOME/agent")"}});
  const test::Ended run = conform(agent);
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("FAILED   protocol       lines that are no request are told so\n"),
            std::string::npos)
      << run.err;
  EXPECT_NE(run.err.find("Malformed request (want"), std::string::npos) << run.err;
}

TEST(Conform, FinishesItsRowWhenItIsInterrupted) {
  const AgentProcess agent;
  test::Program run({TERVAINCTL_PATH, "conform", "unix:" + agent.socket()}, processEnvironment(),
                    test::Program::Errors::kept);
  const auto says = [&run](const char* words) {
    return run.output().find(words) != std::string::npos;
  };
  // The row behind this one waits for two seconds.
  EXPECT_TRUE(
      test::eventually([&] { return says("the group is killed when the host goes away"); }));
  run.signal(SIGTERM);
  EXPECT_EQ(run.waitForEnd(), 1);
  EXPECT_TRUE(says("held     exec           a background process holds the end up two seconds\n") &&
              says(" held, 0 failed, 0 skipped, ") && says(" left out\n"))
      << run.output();
}

}  // namespace
}  // namespace tervain
