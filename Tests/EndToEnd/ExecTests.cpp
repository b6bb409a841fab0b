// Streams of the real executable that somebody does not read for a while, or at all: a command its
// input, or a host its output. Each is tried with the signals and hang-ups that may come meanwhile.

#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <csignal>
#include <future>
#include <sstream>
#include <utility>

#include "Support/AgentProcess.h"
#include "VMAgentCore/Base64/Base64.h"
#include "VMAgentCore/ExecInput.h"

namespace tervain {
namespace {

using namespace std::chrono_literals;
using test::AgentProcess;
using test::Peer;
using test::stdinFrame;

/// Less than the second that the agent once waited for each frame, and more than a busy machine
/// takes to do anything at once.
constexpr std::chrono::seconds atOnce{5};

const std::string eof = "{\"t\":\"eof\"}\n";

std::string noise(std::size_t size) {
  std::string bytes(size, '\0');
  std::generate(bytes.begin(), bytes.end(), [value = 1U]() mutable {
    value = value * 1'103'515'245U + 12'345U;
    return static_cast<char>(value >> 16U);
  });
  return bytes;
}

/// Input cut into frames of a size.
std::string framesOf(std::string_view bytes, std::size_t size) {
  std::string frames;
  for (; !bytes.empty(); bytes.remove_prefix(std::min(size, bytes.size()))) {
    frames += stdinFrame(bytes.substr(0, size));
  }
  return frames;
}

/// Whether what the host has not read fills its connection: it no longer grows.
bool isFull(const Peer& host) {
  static int before = 0;
  int now = 0;
  ioctl(host.fd(), FIONREAD, &now);
  return std::exchange(before, now) == now && now > 0;
}

class ExecStreams : public testing::Test {
 protected:
  void TearDown() override {
    EXPECT_TRUE(test::eventually([this] { return agent_.footprint().within(baseline_); }))
        << testing::PrintToString(agent_.footprint());
  }

  Peer start(const std::string& command) {
    Peer host = agent_.connect();
    host.send(Json{{"op", "exec"}, {"command", command}}.dump() + '\n');
    return host;
  }

  /// Starts a command that prints the number of a process which is to end with it.
  Peer start(const std::string& command, pid_t& pid) {
    Peer host = start(command);
    pid = std::stoi(decodeBase64(host.readJson().value("d", "")).value_or("-1"));
    return host;
  }

  AgentProcess agent_;
  test::Footprint baseline_ = agent_.footprint();
};

TEST_F(ExecStreams, AllInputArrivesHoweverSlowItsReader) {
  const struct {
    const char* command;
    std::size_t size;
    std::size_t frame;
  } cases[]{{"sleep 1; cat", 6'000'000, 32'768},
            {"cat", 1'000'000, 1'000'000},
            {"sleep 0.1; cat", 100'000, 1}};
  for (const auto& [command, size, frame] : cases) {
    const std::string input = noise(size);
    Peer host = start(command);
    const auto sent = std::async(std::launch::async, [&, frames = framesOf(input, frame)] {
      host.send(frames);
      host.send(eof);
    });
    const test::ExecResult result = readExec(host);
    EXPECT_TRUE(result.out == input) << command << ": " << result.out.size() << " of " << size;
    EXPECT_EQ(result.code, 0) << command;
  }
}

TEST_F(ExecStreams, ManyCommandsAtOnceHaveThreeDescriptorsEach) {
  std::vector<Peer> hosts;
  for (int i = 0; i < 40; ++i) {
    // Without its own 0, 1 and 2 a command's folder shows only the descriptor that reads it.
    hosts.push_back(start("cat >/dev/null; ls /dev/fd | wc -l; exit " + std::to_string(i)));
  }
  for (int code = 0; Peer & host : hosts) {
    host.send(stdinFrame("x") + eof);
    const test::ExecResult result = readExec(host);
    EXPECT_EQ(result.out.substr(result.out.find_first_not_of(' ')), "4\n");
    EXPECT_EQ(result.code, code++);
  }
}

TEST_F(ExecStreams, ALateReaderGetsAllOutputAndTheEnd) {
  // Writes until nobody takes any more, says how much that was, and ends.
  Peer host = start(
      "for i in 1 2 3 4 5 6 7 8 9; do dd if=/dev/zero bs=4096 count=99 oflag=nonblock; done; exit "
      "7");
  // Only the connection is left of it: the grace time has passed, and the pipes are closed.
  EXPECT_TRUE(test::eventually([this] {
    const auto now = agent_.footprint();
    return now.children > baseline_.children && now.descriptors == baseline_.descriptors + 1;
  }));
  const test::ExecResult result = readExec(host);
  std::size_t written = 0;
  std::istringstream lines(result.err);
  for (std::string line; std::getline(lines, line);) {
    written += line.find(" copied") == std::string::npos ? 0 : std::stoul(line);
  }
  EXPECT_GT(written, 65'536U) << result.err;
  EXPECT_EQ(result.out.size(), written);
  EXPECT_EQ(result.code, 7);
}

TEST_F(ExecStreams, SignalsAndHangUpsActAtOnceWhateverWaits) {
  const std::string full = framesOf(noise(131'072), 65'536);
  // What a pipe and the agent hold, and a little that stays in the connection.
  const std::string tooMuch =
      framesOf(noise(65'536 + ExecInput::limit), 65'536) + full.substr(0, 999);
  const struct {
    const char* what;
    std::string command;
    std::string input;
    bool floods;  // so that the host is who does not read
  } cases[]{{"it reads input", "exec cat >/dev/null", "", false},
            {"it reads none", "exec sleep 60", full + framesOf(noise(25), 1), false},
            {"the agent does not either", "exec sleep 60", tooMuch, false},
            {"the host reads no output", "exec yes", "", true},
            {"nobody reads anything", "exec yes", full, true},
            {"only its descendants are left", "exit", "", false}};
  enum class Ending { signal, hangUp, endOfStream };
  for (const auto& [what, command, input, floods] : cases) {
    for (const Ending ending : {Ending::signal, Ending::hangUp, Ending::endOfStream}) {
      pid_t pid = -1;
      Peer host = start("sleep 60 & echo $!; " + command, pid);
      host.send(input);
      EXPECT_TRUE(!floods || test::eventually([&] { return isFull(host); })) << what;
      // Its connection and its three pipes are left once its end has been noticed.
      EXPECT_TRUE(command != "exit" || test::eventually([&] {
                    return agent_.footprint().descriptors <= baseline_.descriptors + 4;
                  }));
      // A signal behind what the agent does not read has to wait for that.
      const bool signals = ending == Ending::signal && input != tooMuch && command != "exit";
      const auto before = Clock::now();
      if (signals) {
        host.send("{\"t\":\"sig\",\"n\":15}\n");
      } else {
        ending == Ending::endOfStream ? static_cast<void>(shutdown(host.fd(), SHUT_WR))
                                      : host.close();
      }
      EXPECT_TRUE(test::eventually([pid] { return !test::isRunning(pid); })) << what;
      EXPECT_LT(Clock::now() - before, atOnce) << what;
      EXPECT_TRUE(!signals || readExec(host).code == 128 + SIGTERM) << what;
    }
  }
}

}  // namespace
}  // namespace tervain
