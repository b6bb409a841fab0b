// What hosts, commands and the kernel can do wrong to the real executable. After each fault it
// serves on, and its descriptors, threads and children are back where they were.

#include <gtest/gtest.h>

#include <fstream>
#include <thread>

#include "Support/AgentProcess.h"
#include "VMAgentCore/Base64.h"

namespace tervain {
namespace {

using namespace std::chrono_literals;
using test::AgentProcess;
using test::eventually;
using test::ExecResult;
using test::Peer;
using test::readExec;
using test::stdinFrame;

constexpr const char* ping = R"({"op":"ping"})";

std::string execLine(const std::string& command) {
  return Json{{"op", "exec"}, {"command", command}}.dump() + '\n';
}

class Faults : public testing::Test {
 protected:
  void TearDown() override {
    EXPECT_TRUE(agent_.alive());
    EXPECT_TRUE(agent_.connect().ask(ping).value("ok", false));
    EXPECT_TRUE(eventually([this] { return agent_.footprint() == baseline_; }))
        << testing::PrintToString(agent_.footprint()) << ", at first "
        << testing::PrintToString(baseline_);
  }

  /// Starts a command that has printed its number, and others behind it.
  Peer startPrinting(const std::string& command, pid_t& pid) {
    Peer host = agent_.connect();
    host.send(execLine("echo $$; " + command));
    const Json frame = host.readJson();
    pid = frame.value("d", "").empty() ? -1 : std::stoi(decode(frame));
    return host;
  }

  static std::string bytesWritten(pid_t pid) {
    std::ifstream counters("/proc/" + std::to_string(pid) + "/io");
    std::string read;
    std::string written;
    std::getline(counters, read);
    std::getline(counters, written);
    return written;
  }

  static std::string decode(const Json& frame) {
    return decodeBase64(frame.value("d", "")).value_or("");
  }

  AgentProcess agent_;
  AgentProcess::Footprint baseline_ = agent_.footprint();
};

TEST_F(Faults, HostVanishesInTheMiddleOfEverything) {
  Peer inRequest = agent_.connect();
  inRequest.send(R"({"op":"pi)");
  Peer beforeReply = agent_.connect();
  beforeReply.send(std::string(ping) + "\n" + ping + "\n");
  pid_t inFramePid = -1;
  Peer inFrame = startPrinting("sleep 60", inFramePid);
  inFrame.send(R"({"t":"i","d":"aGk)");
  pid_t inExecPid = -1;
  Peer inExec = startPrinting("sleep 60 & sleep 60", inExecPid);
  for (Peer* host : {&inRequest, &beforeReply, &inFrame, &inExec}) {
    host->close();
  }
  for (const pid_t pid : {inFramePid, inExecPid}) {
    EXPECT_TRUE(eventually([pid] { return !test::isRunning(pid); })) << pid;
  }
}

TEST_F(Faults, HostStopsReadingWhileACommandFloods) {
  pid_t pid = -1;
  Peer stalled = startPrinting("exec yes", pid);
  // The flood has filled the connection when the command writes no more.
  std::string written;
  EXPECT_TRUE(eventually([&] {
    const std::string before = std::exchange(written, bytesWritten(pid));
    return !before.empty() && before == written;
  }));
  EXPECT_TRUE(agent_.connect().ask(ping).value("ok", false)) << "another host is held up";
  stalled.close();
  EXPECT_TRUE(eventually([pid] { return !test::isRunning(pid); }));
}

TEST_F(Faults, ManyConnectionsAtOnce) {
  std::vector<Peer> hosts;
  hosts.reserve(200);
  for (int i = 0; i < 200; ++i) {
    hosts.push_back(agent_.connect());
    ASSERT_TRUE(hosts.back().send(std::string(ping) + "\n"));
  }
  for (Peer& host : hosts) {
    EXPECT_TRUE(host.readJson().value("ok", false));
  }
}

TEST_F(Faults, ManyCommandsAtOnceKeepTheirDescriptorsApart) {
  std::vector<Peer> hosts;
  hosts.reserve(40);
  for (int i = 0; i < 40; ++i) {
    hosts.push_back(agent_.connect());
    // Without its own 0, 1 and 2 a command's folder shows only the descriptor that reads it.
    hosts.back().send(
        execLine("cat >/dev/null; ls /proc/self/fd | wc -l; exit " + std::to_string(i)));
  }
  for (Peer& host : hosts) {
    host.send(stdinFrame("x") + "{\"t\":\"eof\"}\n");
  }
  for (int i = 0; i < 40; ++i) {
    const ExecResult result = readExec(hosts[static_cast<std::size_t>(i)]);
    EXPECT_EQ(result.out, "4\n");
    EXPECT_EQ(result.code, i);
  }
}

TEST_F(Faults, FiveMegabytesPassByteForByte) {
  std::string data(5'000'000, '\0');
  unsigned value = 1;
  for (char& byte : data) {
    value = value * 1'103'515'245 + 12'345;
    byte = static_cast<char>(value >> 16U);
  }
  Peer host = agent_.connect();
  host.send(execLine("cat"));
  std::thread feeder([&] {
    for (std::size_t at = 0; at < data.size(); at += 32'768) {
      host.send(stdinFrame(std::string_view(data).substr(at, 32'768)));
    }
    host.send("{\"t\":\"eof\"}\n");
  });
  const ExecResult result = readExec(host);
  feeder.join();
  EXPECT_TRUE(result.out == data) << result.out.size() << " bytes came back";
  EXPECT_EQ(result.code, 0);
}

TEST_F(Faults, MemoryComesBackAfterLargeRequests) {
  const auto storm = [this] {
    std::vector<std::thread> hosts;
    for (int i = 0; i < 4; ++i) {
      hosts.emplace_back([this] {
        Peer host = agent_.connect();
        const std::string large = R"({"op":")" + std::string(4'000'000, 'x') + "\"}";
        EXPECT_EQ(host.ask(large).value("ok", true), false);
      });
    }
    for (std::thread& host : hosts) {
      host.join();
    }
    eventually([this] { return agent_.footprint() == baseline_; });
  };
  storm();
  const std::size_t before = agent_.residentBytes();
  for (int i = 0; i < 3; ++i) {
    storm();
  }
  if (!SANITIZED) {  // sanitizers keep freed memory on purpose
    EXPECT_LT(agent_.residentBytes(), before + 2'000'000);
    EXPECT_LT(agent_.residentBytes(), 16'000'000U);
  }
}

TEST(FaultsOfTheKernel, DescriptorsRunOutAndComeBack) {
  const AgentProcess agent(
      {.environment = {}, .prefix = {"/bin/sh", "-c", "ulimit -n 24; exec \"$0\""}});
  const auto baseline = agent.footprint();
  std::vector<Peer> hosts;
  const auto exhausted = [&] {
    hosts.push_back(agent.connect());
    return agent.log().find("[TervainVMAgent] accept failed (errno 24); retrying\n") !=
           std::string::npos;
  };
  ASSERT_TRUE(eventually(exhausted));
  // An exec that can get no pipes says so; the connection was made while there was room.
  hosts.front().send(execLine("true"));
  const ExecResult refused = readExec(hosts.front());
  EXPECT_EQ(refused.error, "could not allocate stdio pipes (errno 24)");
  hosts.clear();
  EXPECT_TRUE(agent.connect().ask(ping).value("ok", false));
  Peer host = agent.connect();
  host.send(execLine("exit 9"));
  EXPECT_EQ(readExec(host).code, 9);
  host.close();
  EXPECT_TRUE(eventually([&] { return agent.footprint() == baseline; }));
}

}  // namespace
}  // namespace tervain
