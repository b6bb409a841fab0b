// The real executable on its real transport. Runs inside a virtual machine that has a vsock
// loopback. After every case the agent's descriptors, threads and children are back where they
// were.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include <barrier>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>
#include <vector>

#include "Support/AgentProcess.h"
#include "VMAgentCore/AgentWire.h"
#include "VMAgentCore/Base64.h"

namespace tervain {
namespace {

using test::AgentProcess;
using test::eventually;
using test::Peer;

const std::string ping = "{\"op\":\"ping\"}\n";

std::string banner(std::uint32_t port) {
  return "[TervainVMAgent] TervainVMAgent protocol v2 starting on vsock port " +
         std::to_string(port) + "\n";
}

std::string execLine(const std::string& command) {
  return Json{{"op", "exec"}, {"command", command}}.dump() + '\n';
}

/// What a frame of output carries; nothing where there is none.
std::string outputOf(const Json& frame) {
  return frame.is_object() ? decodeBase64(frame.value("d", "")).value_or("") : "";
}

class Guest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    agent_ = std::make_unique<AgentProcess>(AgentWire::port);
    // The thread of the connection that showed the agent to be up may be about to end.
    ASSERT_TRUE(eventually([] { return agent_->footprint().threads == 2; }));
    baseline_ = agent_->footprint();
  }
  static void TearDownTestSuite() { agent_.reset(); }

  void TearDown() override {
    ASSERT_TRUE(agent_->alive());
    EXPECT_EQ(agent_->connect().ask(ping).value("version", 0), AgentWire::version);
    EXPECT_TRUE(eventually([] { return agent_->footprint().within(baseline_); }))
        << testing::PrintToString(agent_->footprint()) << ", at first "
        << testing::PrintToString(baseline_);
  }

  /// Starts a command that first prints the numbers of its process and of one behind it.
  static Peer startPrinting(const std::string& command, std::vector<pid_t>& pids) {
    Peer host = agent_->connect();
    host.send(execLine("sleep 600 & echo $$ $!; " + command));
    std::istringstream numbers(outputOf(host.readJson()));
    pids.assign(std::istream_iterator<pid_t>(numbers), std::istream_iterator<pid_t>());
    EXPECT_EQ(pids.size(), 2U);
    return host;
  }

  static inline std::unique_ptr<AgentProcess> agent_;
  static inline test::Footprint baseline_{};
};

std::string contentOf(const std::filesystem::path& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

/// The write that a thread of a process is in; empty when none is.
std::string pendingWrite(pid_t process) {
  const std::string write = std::to_string(SYS_write) + " ";
  const std::string tasks = "/proc/" + std::to_string(process) + "/task";
  for (const auto& task : std::filesystem::directory_iterator(tasks)) {
    std::string call = contentOf(task.path() / "syscall");
    if (call.starts_with(write)) {
      return call;
    }
  }
  return {};
}

TEST_F(Guest, ListensOnTheDefaultPortUnlessToldOtherwise) {
  EXPECT_TRUE(agent_->log().starts_with(banner(2035))) << agent_->log();
  const Json reply = Peer::connect(2035).ask(ping);
  EXPECT_EQ(reply.value("ok", false), true) << reply;
  EXPECT_EQ(reply.value("displays", Json()), Json::array());

  const AgentProcess other(40'000);
  EXPECT_TRUE(other.log().starts_with(banner(40'000))) << other.log();
}

TEST_F(Guest, SecondAgentOnAPortGivesUp) {
  const test::Ended ended = test::runToEnd({AGENT_PATH}, {});
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.err,
            banner(2035) +
                "[TervainVMAgent] readiness: accessibility=false screenRecording=false "
                "postEvent=false\n"
                "[TervainVMAgent] FATAL: vsock listen(:2035) failed: Address already in use — is "
                "this running inside a macOS guest VM? (AF_VSOCK fails ENODEV on a host)\n");
}

TEST_F(Guest, HoldsFourMegabytesOfALineAndNoMore) {
  Peer host = agent_->connect();
  ASSERT_TRUE(host.send(std::string(AgentWire::maxPendingBytes, 'x')));
  EXPECT_EQ(host.ask("").value("ok", true), false);
  EXPECT_TRUE(host.ask(ping).value("ok", false));
  host.send(std::string(AgentWire::maxPendingBytes + 1, 'x'));
  EXPECT_TRUE(host.closed());
}

TEST_F(Guest, FiveMegabytesPassByteForByte) {
  // No more is under way at a time than a pipe holds, or the agent might drop what the command is
  // slow to take.
  constexpr std::size_t window = 65'536;
  constexpr std::size_t chunk = 8192;
  std::string data(5'000'000, '\0');
  unsigned value = 1;
  for (char& byte : data) {
    value = value * 1'103'515'245 + 12'345;
    byte = static_cast<char>(value >> 16U);
  }
  Peer host = agent_->connect();
  host.send(execLine("cat"));
  std::string echoed;
  for (std::size_t sent = 0; echoed.size() < data.size();) {
    for (; sent < data.size() && sent + chunk <= echoed.size() + window; sent += chunk) {
      host.send(test::stdinFrame(std::string_view(data).substr(sent, chunk)));
    }
    const std::string output = outputOf(host.readJson());
    ASSERT_FALSE(output.empty()) << echoed.size() << " bytes came back";
    echoed += output;
  }
  EXPECT_TRUE(echoed == data);
  host.send("{\"t\":\"eof\"}\n");
  EXPECT_EQ(test::readExec(host).code, 0);
}

TEST_F(Guest, HostVanishesInACommandAndWhileTheAgentIsBlockedWritingToIt) {
  std::vector<pid_t> idle;
  Peer inExec = startPrinting("sleep 600", idle);
  std::vector<pid_t> flooding;
  Peer host = startPrinting("exec cat /dev/zero", flooding);
  ASSERT_FALSE(flooding.empty());
  // The flood has filled the connection when the agent is in a write and the command in another
  // that does not get on.
  const std::string counters = "/proc/" + std::to_string(flooding.front()) + "/io";
  std::string state;
  ASSERT_TRUE(eventually([&] {
    const std::string write = pendingWrite(agent_->pid());
    const std::string before = std::exchange(state, write + contentOf(counters));
    return !write.empty() && before == state;
  })) << state;
  EXPECT_TRUE(agent_->connect().ask(ping).value("ok", false)) << "another host is held up";
  inExec.close();
  host.close();
  flooding.insert(flooding.end(), idle.begin(), idle.end());
  for (const pid_t pid : flooding) {
    EXPECT_TRUE(eventually([pid] { return !test::isRunning(pid); })) << pid;
  }
}

TEST_F(Guest, ManyHostsConnectAtOnce) {
  constexpr std::ptrdiff_t count = 64;
  std::barrier allConnected(count);
  std::vector<std::thread> hosts;
  hosts.reserve(count);
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    hosts.emplace_back([&allConnected] {
      Peer host = agent_->connect();
      allConnected.arrive_and_wait();
      for (int request = 0; request < 3; ++request) {
        EXPECT_TRUE(host.ask(ping).is_object());
      }
    });
  }
  for (std::thread& host : hosts) {
    host.join();
  }
}

}  // namespace
}  // namespace tervain
