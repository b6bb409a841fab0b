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

/// What a frame of output carries.
std::string outputOf(const Json& frame) {
  return decodeBase64(frame.value("d", "")).value_or("");
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

  static void expectEnded(const std::vector<pid_t>& pids) {
    for (const pid_t pid : pids) {
      EXPECT_TRUE(eventually([pid] { return !test::isRunning(pid); })) << pid;
    }
  }

  static inline std::unique_ptr<AgentProcess> agent_;
  static inline AgentProcess::Footprint baseline_{};
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

/// Reads a reply for each error text; an empty one stands for success.
void expectReplies(Peer& host, const std::vector<std::string>& errors) {
  for (const std::string& error : errors) {
    const Json reply = host.readJson();
    EXPECT_EQ(reply.value("ok", !error.empty()), error.empty()) << reply;
    EXPECT_EQ(reply.value("error", ""), error);
  }
}

TEST_F(Guest, AnswersInOrderHoweverRequestsArePacked) {
  const std::string requests = ping + "\r\n\n{\"op\":\"PING\"}\r\n[1,2]\n{\"op\":5}\n" + ping;
  const std::string malformed = "malformed request (want one JSON object per line with an \"op\")";
  const std::vector<std::string> errors = {"", "unknown op 'PING' (agent protocol v2)", malformed,
                                           malformed, ""};
  // All at once, and then every byte in a packet of its own.
  for (const std::size_t packet : {requests.size(), std::size_t{1}}) {
    Peer host = agent_->connect();
    for (std::size_t at = 0; at < requests.size(); at += packet) {
      host.send(requests.substr(at, packet));
    }
    shutdown(host.fd(), SHUT_WR);
    expectReplies(host, errors);
    EXPECT_TRUE(host.closed());
  }
}

TEST_F(Guest, HoldsFourMegabytesOfALineAndNoMore) {
  Peer host = agent_->connect();
  ASSERT_TRUE(host.send(std::string(AgentWire::maxPendingBytes, 'x')));
  EXPECT_EQ(host.ask("").value("ok", true), false);
  EXPECT_TRUE(host.ask(ping).value("ok", false));
  host.send(std::string(AgentWire::maxPendingBytes + 1, 'x'));
  EXPECT_TRUE(host.closed());
}

TEST_F(Guest, RunsCommands) {
  struct Case {
    const char* command;
    std::string frames;
    const char* out;
    const char* err;
    int code;
  };
  const std::vector<Case> cases = {
      {"echo out; echo err >&2; exit 3", "", "out\n", "err\n", 3},
      {"cat; echo end", test::stdinFrame("hi\n") + "{\"t\":\"eof\"}\n", "hi\nend\n", "", 0},
      {"sleep 600", "{\"t\":\"sig\",\"n\":15}\n", "", "", 143},
  };
  for (const Case& each : cases) {
    Peer host = agent_->connect();
    host.send(execLine(each.command) + each.frames);
    const test::ExecResult result = test::readExec(host);
    EXPECT_EQ(result.out, each.out);
    EXPECT_EQ(result.err, each.err);
    EXPECT_EQ(result.code, each.code) << each.command;
    EXPECT_TRUE(host.closed());
  }
}

/// Passes data through a running `cat` and returns what came back until then. No more is under way
/// at a time than a pipe holds, or the agent might drop what the command is slow to take.
std::string echo(Peer& host, std::string_view data) {
  constexpr std::size_t window = 65'536;
  constexpr std::size_t chunk = 8192;
  std::size_t sent = 0;
  std::string result;
  while (result.size() < data.size()) {
    for (; sent < data.size() && sent + chunk <= result.size() + window; sent += chunk) {
      host.send(test::stdinFrame(data.substr(sent, chunk)));
    }
    const Json frame = host.readJson();
    if (!frame.is_object() || frame.value("t", "") != "o") {
      break;
    }
    result += outputOf(frame);
  }
  return result;
}

TEST_F(Guest, FiveMegabytesPassByteForByte) {
  std::string data(5'000'000, '\0');
  unsigned value = 1;
  for (char& byte : data) {
    value = value * 1'103'515'245 + 12'345;
    byte = static_cast<char>(value >> 16U);
  }
  Peer host = agent_->connect();
  host.send(execLine("cat"));
  const std::string echoed = echo(host, data);
  EXPECT_TRUE(echoed == data) << echoed.size() << " bytes came back";
  host.send("{\"t\":\"eof\"}\n");
  EXPECT_EQ(test::readExec(host).code, 0);
}

TEST_F(Guest, HostVanishesInTheMiddleOfEverything) {
  Peer inRequest = agent_->connect();
  inRequest.send(R"({"op":"pi)");
  Peer beforeReplies = agent_->connect();
  beforeReplies.send(ping + ping + ping);
  std::vector<pid_t> pids;
  Peer inExec = startPrinting("sleep 600", pids);
  for (Peer* host : {&inRequest, &beforeReplies, &inExec}) {
    host->close();
  }
  expectEnded(pids);
}

TEST_F(Guest, HostVanishesWhileTheAgentIsBlockedWritingToIt) {
  std::vector<pid_t> pids;
  Peer host = startPrinting("exec cat /dev/zero", pids);
  ASSERT_FALSE(pids.empty());
  // The flood has filled the connection when the agent is in a write and the command in another
  // that does not get on.
  const std::string counters = "/proc/" + std::to_string(pids.front()) + "/io";
  std::string state;
  ASSERT_TRUE(eventually([&] {
    const std::string write = pendingWrite(agent_->pid());
    const std::string before = std::exchange(state, write + contentOf(counters));
    return !write.empty() && before == state;
  })) << state;
  EXPECT_TRUE(agent_->connect().ask(ping).value("ok", false)) << "another host is held up";
  host.close();
  expectEnded(pids);
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

TEST_F(Guest, HandsOverShellEvents) {
  const test::TempDir spool;
  spool.write("1.jsonl", "{\"a\":1}\n");
  spool.write("2.jsonl", "{\"b\":2}\n");
  const std::string drain =
      Json{{"op", "shell-events"}, {"dir", spool.path()}, {"truncate", true}}.dump() + '\n';
  Peer host = agent_->connect();
  host.send(drain + drain + ping);
  const Json full = host.readJson();
  EXPECT_EQ(decodeBase64(full.value("events", "")), "{\"a\":1}\n{\"b\":2}\n");
  EXPECT_EQ(full.value("files", 0), 2);
  EXPECT_EQ(host.readJson().value("files", -1), 0);
  EXPECT_EQ(host.readJson().value("version", 0), 2);
  EXPECT_FALSE(spool.has("1.jsonl"));
}

}  // namespace
}  // namespace tervain
