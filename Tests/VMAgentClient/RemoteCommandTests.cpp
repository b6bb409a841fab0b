#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <future>

#include "VMAgentClient/RemoteCommand.h"
#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/Base64.h"
#include "VMAgentCore/IO.h"
#include "VMAgentCore/System.h"

namespace tervain {
namespace {

/// Ends a test that hangs, with the whole process.
constexpr unsigned deadlineSeconds = 30;

/// The agent's side of a connection, in the hands of a script.
class Peer {
 public:
  explicit Peer(UniqueFD socket) : fd_(std::move(socket)) {}

  void write(std::string_view text) const { EXPECT_TRUE(writeAll(fd_.get(), text)); }

  /// The next line from the client, empty once it has gone.
  std::string line() {
    for (;;) {
      if (const auto line = lines_.next()) {
        return std::string(*line);
      }
      char buffer[1000];
      const ssize_t n = readSome(fd_.get(), buffer);
      if (n <= 0) {
        return {};
      }
      lines_.append({&buffer[0], static_cast<std::size_t>(n)});
    }
  }

 private:
  UniqueFD fd_;
  LineSplitBuffer lines_;
};

std::string outputFrame(std::string_view tag, std::string_view bytes) {
  std::string frame = "{\"t\":\"" + std::string(tag) + "\",\"d\":\"";
  appendBase64(frame, bytes);
  return frame + "\"}\n";
}

class RemoteCommandTest : public testing::Test {
 protected:
  void SetUp() override {
    std::signal(SIGPIPE, SIG_IGN);
    alarm(deadlineSeconds);
  }
  void TearDown() override { alarm(0); }

  /// A connection to an agent that follows the script until it returns.
  AgentConnection agent(std::function<void(Peer&)> script) {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    const auto play = [](const std::function<void(Peer&)>& lines, int socket) {
      Peer peer{UniqueFD(socket)};
      lines(peer);
    };
    done_ = std::async(std::launch::async, play, std::move(script), ends[1]);
    return AgentConnection(UniqueFD(ends[0]));
  }

  RemoteCommand::Result run(AgentConnection connection, int input = -1, int signals = -1) {
    return RemoteCommand(std::move(connection), "command")
        .run({.input = input,
              .signals = signals,
              .onOutput = [this](std::string_view bytes) { output_ += bytes; },
              .onError = [this](std::string_view bytes) { errors_ += bytes; }});
  }

  std::future<void> done_;  // its destructor waits for the script
  std::string output_;
  std::string errors_;
};

TEST_F(RemoteCommandTest, PutsFramesTogetherWhereverTheyAreSplit) {
  const std::string frames = outputFrame("o", "one ") + "\r\n{\"t\":\"later\"}\n[]\n" +
                             outputFrame("e", "bad") + outputFrame("o", "two") +
                             "{\"t\":\"x\",\"code\":7}\n";
  for (const std::size_t piece : {std::size_t{1}, std::size_t{7}, frames.size()}) {
    output_ = errors_ = "";
    const auto result = run(agent([&](Peer& peer) {
      EXPECT_EQ(parseObject(peer.line()), Json({{"op", "exec"}, {"command", "command"}}));
      EXPECT_EQ(parseObject(peer.line()), Json({{"t", "eof"}}));
      for (std::size_t i = 0; i < frames.size(); i += piece) {
        peer.write(std::string_view(frames).substr(i, piece));
      }
    }));
    EXPECT_EQ(std::get<RemoteCommand::Exited>(result).code, 7);
    EXPECT_EQ(output_, "one two");
    EXPECT_EQ(errors_, "bad");
    done_.wait();  // for the script to let go of what this round has given it
  }
}

TEST_F(RemoteCommandTest, SaysWhyThereIsNoExitCode) {
  using namespace std::string_literals;
  EXPECT_EQ(std::get<RemoteCommand::Refused>(run(agent([](Peer& peer) {
              peer.write("{\"t\":\"err\",\"m\":\"no shell\"}\n");
            }))).message,
            "no shell"s);
  EXPECT_EQ(std::get<RemoteCommand::Refused>(run(agent([](Peer& peer) {
              peer.write("{\"ok\":false,\"error\":\"what?\"}\n");
            }))).message,
            "what?"s);
  EXPECT_TRUE(std::holds_alternative<RemoteCommand::ConnectionLost>(
      run(agent([](Peer& peer) { peer.write(outputFrame("o", "cut") + "{\"t\":\"x\""); }))));
  EXPECT_EQ(output_, "cut");
}

TEST_F(RemoteCommandTest, TakesOutputInWhileNobodyReadsItsInput) {
  constexpr int frameCount = 100;
  const std::string chunk(65'536, 'x');
  const UniqueFD endless(open("/dev/zero", O_RDONLY | O_CLOEXEC));
  // The peer reads nothing at all, so both directions' buffers are full long before it ends, and
  // it hangs up with input unread.
  const auto result = run(agent([&](Peer& peer) {
                            for (int i = 0; i < frameCount; ++i) {
                              peer.write(outputFrame("o", chunk));
                            }
                            peer.write("{\"t\":\"x\",\"code\":0}\n");
                          }),
                          endless.get());
  EXPECT_EQ(std::get<RemoteCommand::Exited>(result).code, 0);
  EXPECT_EQ(output_.size(), frameCount * chunk.size());
}

TEST_F(RemoteCommandTest, SendsAllInputThenItsEndAndSignals) {
  std::string sent;
  for (int i = 0; sent.size() < 1'000'000; ++i) {
    sent += std::to_string(i);
  }
  System::Pipe input = System::makePipe();
  System::Pipe signals = System::makePipe();
  std::string received;
  const auto feeder = std::async(std::launch::async, [&] {
    writeAll(input.writeEnd.get(), sent);
    input.writeEnd.reset();
  });
  const auto result =
      run(agent([&](Peer& peer) {
            peer.line();
            auto frame = parseObject(peer.line());
            while (frame && frame->at("t") == "i") {
              received += decodeBase64(frame->at("d").get<std::string>()).value();
              frame = parseObject(peer.line());
            }
            EXPECT_EQ(frame, Json({{"t", "eof"}}));
            const char interrupt = SIGINT;
            writeAll(signals.writeEnd.get(), {&interrupt, 1});
            EXPECT_EQ(parseObject(peer.line()), Json({{"t", "sig"}, {"n", SIGINT}}));
            peer.write("{\"t\":\"x\",\"code\":130}\n");
          }),
          input.readEnd.get(), signals.readEnd.get());
  EXPECT_EQ(std::get<RemoteCommand::Exited>(result).code, 130);
  EXPECT_EQ(received, sent);
}

TEST_F(RemoteCommandTest, HangsUpWhenOutputCannotBePassedOn) {
  auto connection = agent([](Peer& peer) {
    peer.line();
    peer.line();
    peer.write(outputFrame("o", "unwanted"));
    EXPECT_EQ(peer.line(), "");
  });
  const auto fail = [](std::string_view) { throw AgentError::posix("writing", EPIPE); };
  EXPECT_THROW(RemoteCommand(std::move(connection), "yes").run({.onOutput = fail, .onError = fail}),
               AgentError);
}

TEST_F(RemoteCommandTest, RequestsGetTheirOwnReplyOrAnError) {
  auto connection = agent([](Peer& peer) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{5'000'000}}) {
      peer.line();
      peer.write("{\"data\":\"" + std::string(size, 'x') + "\"}\n");
    }
    peer.line();
    peer.write("nonsense\n");
  });
  EXPECT_EQ(connection.request({{"op", "a"}}).at("data"), "");
  EXPECT_EQ(connection.request({{"op", "b"}}).at("data").get<std::string>().size(), 5'000'000U);
  EXPECT_THROW(connection.request({{"op", "c"}}), AgentError);
  EXPECT_THROW(connection.request({{"op", "d"}}), AgentError);  // nobody is there any more
  EXPECT_THROW(connection.request({{"op", "\xff"}}), AgentError);
}

}  // namespace
}  // namespace tervain
