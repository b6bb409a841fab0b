#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <csignal>
#include <functional>
#include <future>

#include "Support/Peer.h"
#include "VMAgentClient/RemoteCommand.h"
#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/Base64.h"
#include "VMAgentCore/IO.h"
#include "VMAgentCore/System.h"

namespace tervain {
namespace {

using test::Peer;
using Script = std::function<void(Peer&)>;

std::string outputFrame(std::string_view tag, std::string_view bytes) {
  std::string frame = "{\"t\":\"" + std::string(tag) + "\",\"d\":\"";
  appendBase64(frame, bytes);
  return frame + "\"}\n";
}

class RemoteCommandTest : public testing::Test {
 protected:
  /// A connection to an agent that follows the script until it returns.
  AgentConnection agent(const Script& script) {
    std::signal(SIGPIPE, SIG_IGN);
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    done_ = std::async(std::launch::async, [script, peer = Peer(UniqueFD(ends[1]))]() mutable {
      script(peer);
      peer.close();
    });
    return AgentConnection(UniqueFD(ends[0]));
  }

  RemoteCommand::Result run(const Script& script, int input = -1, int signals = -1) {
    output_ = errors_ = "";
    const auto result = RemoteCommand(agent(script), "command")
                            .run({.input = input,
                                  .signals = signals,
                                  .onOutput = [this](std::string_view s) { output_ += s; },
                                  .onError = [this](std::string_view s) { errors_ += s; }});
    done_.get();
    return result;
  }

  std::future<void> done_;  // its destructor waits for the script
  std::string output_;
  std::string errors_;
};

TEST_F(RemoteCommandTest, PutsFramesTogetherWhereverTheyAreSplit) {
  const std::string frames =
      outputFrame("o", "one ") + "\r\n{\"t\":\"later\"}\n[]\n" + outputFrame("e", "bad\xff\xff") +
      outputFrame("o", "two") + "{\"t\":\"o\",\"d\":\"no base64\"}\n" +
      "{\"d\":\"IHRo\\u0063mVl\", \"t\":\"\\u006f\"}\n" + "{\"t\":\"x\",\"code\":7}\n";
  for (const std::size_t piece : {std::size_t{1}, std::size_t{7}, frames.size()}) {
    const auto result = run([&](Peer& peer) {
      EXPECT_EQ(peer.readJson(), Json({{"op", "exec"}, {"command", "command"}}));
      EXPECT_EQ(peer.readJson(), Json({{"t", "eof"}}));
      for (std::size_t i = 0; i < frames.size(); i += piece) {
        peer.send(std::string_view(frames).substr(i, piece));
      }
    });
    EXPECT_EQ(std::get<RemoteCommand::Exited>(result).code, 7);
    EXPECT_EQ(output_, "one two three");
    EXPECT_EQ(errors_, "bad\xff\xff");
  }
}

TEST_F(RemoteCommandTest, SaysWhyThereIsNoExitCode) {
  for (const char* refusal :
       {"{\"t\":\"err\",\"m\":\"no\"}\n", "{\"ok\":false,\"error\":\"no\"}\n"}) {
    const auto result = run([&](Peer& peer) { peer.send(refusal); });
    EXPECT_EQ(std::get<RemoteCommand::Refused>(result).message, "no");
  }
  const std::string cut = outputFrame("o", "cut") + "{\"t\":\"x\"";
  const auto result = run([&](Peer& peer) { peer.send(cut); });
  EXPECT_TRUE(std::holds_alternative<RemoteCommand::ConnectionLost>(result));
  EXPECT_EQ(output_, "cut");
}

TEST_F(RemoteCommandTest, TakesOutputInWhileNobodyReadsItsInput) {
  constexpr int frameCount = 100;
  const std::string chunk(65'536, 'x');
  const UniqueFD endless(open("/dev/zero", O_RDONLY | O_CLOEXEC));
  // The peer reads nothing at all, so both directions' buffers are full long before it ends, and
  // it hangs up with input unread.
  const Script flood = [&](Peer& peer) {
    for (int i = 0; i < frameCount; ++i) {
      peer.send(outputFrame("o", chunk));
    }
    peer.send("{\"t\":\"x\",\"code\":0}\n");
  };
  EXPECT_EQ(std::get<RemoteCommand::Exited>(run(flood, endless.get())).code, 0);
  EXPECT_EQ(output_.size(), frameCount * chunk.size());
}

TEST_F(RemoteCommandTest, SendsAllInputThenItsEndAndSignals) {
  std::string sent;
  for (int i = 0; sent.size() < 1'000'000; ++i) {
    sent += std::to_string(i);
  }
  System::Pipe input = System::makePipe();
  System::Pipe signals = System::makePipe();
  const auto feeder = std::async(std::launch::async, [&] {
    writeAll(input.writeEnd.get(), sent);
    input.writeEnd.reset();
  });
  const Script script = [&](Peer& peer) {
    peer.readLine();
    std::string received;
    Json frame = peer.readJson();
    for (; frame.value("t", "") == "i"; frame = peer.readJson()) {
      received += decodeBase64(frame.value("d", "")).value();
    }
    EXPECT_TRUE(received == sent) << received.size();
    EXPECT_EQ(frame, Json({{"t", "eof"}}));
    const char interrupt = SIGINT;
    writeAll(signals.writeEnd.get(), {&interrupt, 1});
    EXPECT_EQ(peer.readJson(), Json({{"t", "sig"}, {"n", SIGINT}}));
    peer.send("{\"t\":\"x\",\"code\":130}\n");
  };
  const auto result = run(script, input.readEnd.get(), signals.readEnd.get());
  EXPECT_EQ(std::get<RemoteCommand::Exited>(result).code, 130);
}

TEST_F(RemoteCommandTest, HangsUpWhenOutputCannotBePassedOn) {
  auto connection = agent([](Peer& peer) {
    peer.readLine();
    peer.readLine();
    peer.send(outputFrame("o", "unwanted"));
    EXPECT_TRUE(peer.closed());
  });
  const auto fail = [](std::string_view) { throw AgentError::posix("writing", EPIPE); };
  EXPECT_THROW(RemoteCommand(std::move(connection), "yes").run({.onOutput = fail, .onError = fail}),
               AgentError);
}

TEST_F(RemoteCommandTest, RequestsGetTheirOwnReplyOrAnError) {
  auto connection = agent([](Peer& peer) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{5'000'000}}) {
      peer.readLine();
      peer.send("{\"data\":\"" + std::string(size, 'x') + "\"}\n");
    }
    peer.readLine();
    peer.send("nonsense\n");
  });
  EXPECT_EQ(connection.request({{"op", "a"}}).at("data"), "");
  EXPECT_EQ(connection.request({{"op", "b"}}).at("data").get<std::string>().size(), 5'000'000U);
  EXPECT_THROW(connection.request({{"op", "c"}}), AgentError);
  EXPECT_THROW(connection.request({{"op", "d"}}), AgentError);  // nobody is there any more
  EXPECT_THROW(connection.request({{"op", "\xff"}}), AgentError);
}

}  // namespace
}  // namespace tervain
