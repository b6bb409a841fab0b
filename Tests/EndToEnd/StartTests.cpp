// How the real executable starts.

#include <gtest/gtest.h>

#include "CVsock/cvsock.h"
#include "Support/AgentProcess.h"

namespace tervain {
namespace {

using test::AgentProcess;
using test::Peer;
using test::readExec;

TEST(Start, ReportsItselfAndServesTheSocketItIsHanded) {
  const AgentProcess agent({.environment = {{"TERVAIN_AGENT_PORT", "4242"}}, .prefix = {}});
  EXPECT_EQ(agent.log().substr(0, agent.log().find("[TervainVMAgent] host")),
            "[TervainVMAgent] TervainVMAgent protocol v2 starting on vsock port 4242\n"
            "[TervainVMAgent] readiness: accessibility=false screenRecording=false "
            "postEvent=false\n");
  Peer host = agent.connect();
  EXPECT_EQ(host.ask(R"({"op":"ping"})"), Json::parse(R"({"ok":true,"version":2,"displays":[],
      "readiness":{"accessibility":false,"screenRecording":false,"postEvent":false}})"));
  EXPECT_FALSE(host.ask(R"({"op":"cursor_position"})").value("ok", true));
  host.close();
  EXPECT_TRUE(test::eventually([&] {
    return agent.log().find("[TervainVMAgent] host disconnected (fd 4)\n") != std::string::npos;
  }));
}

TEST(Start, CommandsSeeTheEnvironmentWithoutTheHandover) {
  const AgentProcess agent({.environment = {{"MARK", "1"}}, .prefix = {}});
  Peer host = agent.connect();
  host.send(R"({"op":"exec","command":"env | grep -E '^(MARK|LISTEN)'; ls /proc/self/fd | wc -l"})"
            "\n");
  // Four: 0, 1, 2 and the one that ls reads the folder through.
  EXPECT_EQ(readExec(host).out, "MARK=1\n4\n");
}

TEST(Start, EndsWithAHintWhereItCannotListen) {
  // Either vsock can't be had at all, or the port is taken: both are told in the same words.
  constexpr std::uint32_t port = 20352;
  const int first = tervain_vsock_listen(port, 1);
  const int second = tervain_vsock_listen(port, 1);
  ASSERT_LT(second, 0);
  const auto ended = test::runToEnd({AGENT_PATH}, {{"TERVAIN_AGENT_PORT", std::to_string(port)}});
  EXPECT_EQ(ended.status, 1);
  EXPECT_NE(ended.err.find("[TervainVMAgent] FATAL: vsock listen(:20352) failed: " +
                           std::generic_category().message(-second) +
                           " — is this running inside a macOS guest VM? (AF_VSOCK fails ENODEV on "
                           "a host)\n"),
            std::string::npos)
      << ended.err;
  close(first);
}

}  // namespace
}  // namespace tervain
