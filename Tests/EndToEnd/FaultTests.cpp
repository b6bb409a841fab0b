// What hosts, commands and the kernel can do wrong to the real executable. After each fault it
// serves on, and its descriptors, threads and children are back where they were.

#include <gtest/gtest.h>

#include <algorithm>
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
    EXPECT_TRUE(eventually([this] { return agent_.footprint().within(baseline_); }))
        << testing::PrintToString(agent_.footprint()) << ", at first "
        << testing::PrintToString(baseline_);
  }

  /// Starts a command that has printed its number, and others behind it.
  Peer startPrinting(const std::string& command, pid_t& pid) {
    Peer host = agent_.connect();
    host.send(execLine("echo $$; " + command));
    const std::string number = decodeBase64(host.readJson().value("d", "")).value_or("");
    pid = number.empty() ? -1 : std::stoi(number);
    return host;
  }

  AgentProcess agent_;
  test::Footprint baseline_ = agent_.footprint();
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
  std::string counters;
  EXPECT_TRUE(eventually([&] {
    std::ifstream file("/proc/" + std::to_string(pid) + "/io");
    const std::string before = std::exchange(counters, {std::istreambuf_iterator(file), {}});
    return !before.empty() && before == counters;
  }));
  EXPECT_TRUE(agent_.connect().ask(ping).value("ok", false)) << "another host is held up";
  stalled.close();
  EXPECT_TRUE(eventually([pid] { return !test::isRunning(pid); }));
}

TEST_F(Faults, ManyConnectionsAndCommandsAtOnce) {
  std::vector<Peer> hosts;
  std::generate_n(std::back_inserter(hosts), 200, [this] { return agent_.connect(); });
  for (const Peer& host : hosts) {
    ASSERT_TRUE(host.send(std::string(ping) + "\n"));
  }
  for (Peer& host : hosts) {
    EXPECT_TRUE(host.readJson().value("ok", false));
  }
  hosts.erase(hosts.begin() + 40, hosts.end());
  for (std::size_t i = 0; i < hosts.size(); ++i) {
    // Without its own 0, 1 and 2 a command's folder shows only the descriptor that reads it.
    hosts[i].send(execLine("cat >/dev/null; ls /proc/self/fd | wc -l; exit " + std::to_string(i)));
  }
  for (const Peer& host : hosts) {
    host.send(stdinFrame("x") + "{\"t\":\"eof\"}\n");
  }
  for (std::size_t i = 0; i < hosts.size(); ++i) {
    const ExecResult result = readExec(hosts[i]);
    EXPECT_EQ(result.out, "4\n");
    EXPECT_EQ(result.code, static_cast<int>(i));
  }
}

TEST_F(Faults, FiveMegabytesPassByteForByte) {
  // No more is under way than a pipe holds: what a command is slow to take the agent drops.
  constexpr std::size_t window = 65'536;
  constexpr std::size_t piece = 8192;
  std::string data(5'000'000, '\0');
  std::generate(data.begin(), data.end(), [value = 1U]() mutable {
    value = value * 1'103'515'245 + 12'345;
    return static_cast<char>(value >> 16U);
  });
  Peer host = agent_.connect();
  host.send(execLine("cat"));
  std::string echoed;
  for (std::size_t sent = 0; echoed.size() < data.size();) {
    for (; sent < data.size() && sent + piece <= echoed.size() + window; sent += piece) {
      host.send(stdinFrame(std::string_view(data).substr(sent, piece)));
    }
    const auto output = decodeBase64(host.readJson().value("d", ""));
    ASSERT_TRUE(output && !output->empty()) << echoed.size() << " bytes came back";
    echoed += *output;
  }
  EXPECT_TRUE(echoed == data);
  host.send("{\"t\":\"eof\"}\n");
  EXPECT_EQ(readExec(host).code, 0);
}

TEST_F(Faults, MemoryComesBackAfterLargeRequests) {
  const std::string large = R"({"op":")" + std::string(4'000'000, 'x') + "\"}";
  std::size_t before = 0;
  for (int storm = 0; storm < 4; ++storm) {
    std::vector<std::thread> hosts;
    for (int i = 0; i < 4; ++i) {
      hosts.emplace_back([&] { EXPECT_EQ(agent_.connect().ask(large).value("ok", true), false); });
    }
    for (std::thread& host : hosts) {
      host.join();
    }
    eventually([this] { return agent_.footprint().within(baseline_); });
    before = storm == 0 ? agent_.residentBytes() : before;
  }
  if (!SANITIZED) {  // sanitizers keep freed memory on purpose
    EXPECT_LT(agent_.residentBytes(), std::min<std::size_t>(before + 2'000'000, 16'000'000));
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
  EXPECT_TRUE(eventually([&] { return agent.footprint().within(baseline); }));
}

}  // namespace
}  // namespace tervain
