#include <fcntl.h>
#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <stdexcept>

#include "Support/Peer.h"
#include "VMAgentClient/ProtocolError.h"
#include "VMAgentClient/RemoteCommand.h"
#include "VMAgentCore/Base64/Base64.h"
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

/// What replies and frames mean is tried with seeds of the fuzz target Client; here it is what
/// happens while one of the two does not read.
class RemoteCommandTest : public testing::Test {
 protected:
  /// A connection to an agent that follows the script until it returns.
  AgentConnection agent(Script script) {
    return AgentConnection(std::move(peer_.emplace(std::move(script)).host));
  }

  std::promise<void> over_;
  std::optional<test::ScriptedPeer> peer_;
};

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
  std::size_t taken = 0;
  const auto result = RemoteCommand(agent(flood), "command")
                          .run({.input = endless.get(),
                                .onOutput = [&](std::string_view bytes) { taken += bytes.size(); },
                                .onError = {}});
  EXPECT_EQ(std::get<RemoteCommand::Exited>(result).code, 0);
  EXPECT_EQ(taken, frameCount * chunk.size());
}

TEST_F(RemoteCommandTest, HangsUpWhenNobodyReadsItsSignal) {
  System::Pipe signals = System::makePipe();
  const UniqueFD endless(open("/dev/zero", O_RDONLY | O_CLOEXEC));
  auto connection = agent([&](Peer& /*peer*/) {
    // The first may get through, before the connection is full.
    const char terminate = SIGTERM;
    const auto over = over_.get_future();
    do {
      writeAll(signals.writeEnd.get(), {&terminate, 1});
    } while (over.wait_for(std::chrono::milliseconds(10)) != std::future_status::ready);
  });
  RemoteCommand command(std::move(connection), "sleep 60");
  EXPECT_THROW(command.run({.input = endless.get(),
                            .signals = signals.readEnd.get(),
                            .onOutput = {},
                            .onError = {},
                            .signalPatience = std::chrono::milliseconds(100)}),
               ProtocolError);
  over_.set_value();
}

TEST_F(RemoteCommandTest, HangsUpWhenOutputCannotBePassedOn) {
  auto connection = agent([](Peer& peer) {
    peer.readLine();
    peer.readLine();
    peer.send(outputFrame("o", "unwanted"));
    EXPECT_TRUE(peer.closed());
  });
  const auto fail = [](std::string_view) { throw std::runtime_error("full"); };
  EXPECT_THROW(RemoteCommand(std::move(connection), "yes").run({.onOutput = fail, .onError = fail}),
               std::runtime_error);
}

TEST_F(RemoteCommandTest, RequestsGetTheirOwnReplyOrAnError) {
  auto connection = agent([](Peer& peer) {
    peer.readLine();  // is answered only when the host has asked on
    for (const std::size_t size : {std::size_t{0}, std::size_t{5'000'000}}) {
      peer.readLine();
      peer.send(size == 0 ? "{\"data\":\"late\"}\n" : "");
      peer.send("{\"data\":\"" + std::string(size, 'x') + "\"}\n");
    }
    for (const std::string& nonsense : {std::string("nonsense"), std::string(1'000'000, '[')}) {
      peer.readLine();
      peer.send(nonsense + "\n");
    }
    while (peer.send(std::string(1'000'000, 'x'))) {
    }
  });
  const auto errorOf = [&](const char* op, Deadline deadline = Deadline::max()) -> std::string {
    try {
      connection.request({{"op", op}}, deadline);
      return "none";
    } catch (const ProtocolError& error) {
      return error.what();
    }
  };
  EXPECT_EQ(errorOf("0", Clock::now()), "the agent has not replied in time");
  EXPECT_EQ(connection.request({{"op", "a"}}).at("data"), "");
  EXPECT_EQ(connection.request({{"op", "b"}}).at("data").get<std::string>().size(), 5'000'000U);
  EXPECT_EQ(errorOf("c"), "the agent's reply is not a JSON object");
  EXPECT_EQ(errorOf("d"), "the agent's reply is not a JSON object");
  EXPECT_EQ(errorOf("e"), "the agent's reply is longer than any it can have");  // it has no end
  test::ScriptedPeer leaving([](Peer& peer) { peer.readLine(); });
  connection = AgentConnection(std::move(leaving.host));
  EXPECT_EQ(errorOf("f"), "the agent closed the connection without a reply");
  EXPECT_THROW(connection.request({{"op", "\xff"}}), std::invalid_argument);
}

}  // namespace
}  // namespace tervain
