// How the real executable starts, and what it costs.

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "Support/AgentProcess.h"
#include "VMAgentCore/Log.h"

namespace tervain {
namespace {

using test::AgentProcess;
using test::Peer;
using test::readExec;

TEST(Start, ReportsItselfAndServesTheSocketItIsHanded) {
  const AgentProcess agent({.environment = {{"TERVAIN_AGENT_PORT", "4242"}}});
  const Json readiness = agent.connect().ask(R"({"op":"ping"})").at("readiness");
  EXPECT_TRUE(agent.log().starts_with(
      "[TervainVMAgent] TervainVMAgent protocol v2 starting on vsock port 4242\n"
      "[TervainVMAgent] readiness: accessibility=" +
      readiness.at("accessibility").dump()))
      << agent.log();
}

TEST(Start, DoesNotDependOnWhatItsParentLeaves) {
  // A socket that does not wait, and children whose ends are lost.
  constexpr const char* parent =
      "$^F = 9; open(S, '+<&=3'); fcntl(S, F_SETFL, O_RDWR | O_NONBLOCK); $SIG{CHLD} = 'IGNORE'; "
      "exec @ARGV";
  const AgentProcess agent(
      {.environment = {{"MARK", "1"}}, .prefix = {"/usr/bin/perl", "-MFcntl", "-e", parent}});
  Peer host = agent.connect();
  host.send(R"({"op":"exec","command":"env | grep -E '^(MARK|LISTEN)'; exit 7"})"
            "\n");
  const test::ExecResult result = readExec(host);
  EXPECT_EQ(result.out, "MARK=1\n");
  EXPECT_EQ(result.code, 7);
  EXPECT_EQ(agent.log().find("accept failed"), std::string::npos) << agent.log();
}

TEST(Start, KeepsALogOfBoundedSizeWhereNothingIsOpen) {
  const test::TempDir home;
  const std::string log = home.path("Logs/agent.log");
  const std::string start = R"(exec "$0" --log '~/Logs/agent.log' <&- >&- 2>&-)";
  test::Program agent({SERVE_UNIX_PATH, home.path("socket"), "/bin/sh", "-c", start, AGENT_PATH},
                      {{"HOME", home.path()}});
  ASSERT_TRUE(
      test::eventually([&] { return test::textOf(log).find("readiness: ") != std::string::npos; }));
  std::filesystem::resize_file(log, maxLogFile + 1);
  Peer::connect(home.path("socket")).close();
  EXPECT_TRUE(test::eventually(
      [&] { return test::textOf(log).starts_with("[TervainVMAgent] host disconnected"); }));
  const std::string old = test::textOf(log + ".old");
  EXPECT_GT(old.size(), std::size_t{maxLogFile});
  EXPECT_GT(std::stoi(old.substr(old.find("host connected (fd ") + 19)), STDERR_FILENO);
}

TEST(HugeLines, CostLittleTimeAndNoMemoryThatStays) {
  const AgentProcess agent;
  const std::size_t idle = agent.residentBytes();
  constexpr std::size_t size = 4'100'000;
  const auto repeated = [](std::string_view what) {
    std::string text;
    while (text.size() < size) {
      text += what;
    }
    return text;
  };
  std::string members;
  for (int i = 0; members.size() < size; ++i) {
    members += "\"" + std::to_string(i) + "\":1,";
  }
  const std::string lines[] = {R"({"op":"foo","a":[)" + repeated("{},") + "0]}",
                               R"({"op":"foo","a":)" + repeated("[") + "}",
                               R"({"op":")" + repeated("/") + "\"}",
                               R"({"op":")" + repeated("\\n") + "\x01\"}",
                               R"({"op":"shell-events","dir":")" + repeated("x") + "\"}",
                               "{" + members + R"("op":"foo"})",
                               R"({"op":"foo","x":)" + repeated("1") + "}"};
  std::vector<Peer> hosts;
  for (const std::string& line : lines) {
    hosts.push_back(agent.connect());
    EXPECT_TRUE(hosts.back().ask(line).is_object()) << line.substr(0, 50);
  }
  if (!SANITIZED) {  // sanitizers keep freed memory on purpose
    const auto small = [&] { return agent.residentBytes() < idle + 3'000'000; };
    EXPECT_TRUE(test::eventually(small)) << agent.residentBytes() - idle;
    EXPECT_LT(agent.peakBytes(), idle + (16U << 20U)) << agent.peakBytes() - idle;
  }
}

}  // namespace
}  // namespace tervain
