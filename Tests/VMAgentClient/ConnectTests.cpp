#include <gtest/gtest.h>
#include <sys/socket.h>

#include <filesystem>
#include <thread>

#include "Support/Peer.h"
#include "Support/TempDir.h"
#include "VMAgentClient/Connect.h"
#include "VMAgentClient/ProtocolError.h"
#include "VMAgentCore/AgentError.h"

namespace tervain {
namespace {

constexpr std::chrono::milliseconds brief{100};

TEST(Connect, HypervisorsAreAskedForThePort) {
  const test::TempDir dir;
  const UniqueFD listener = test::listenAt(dir.path("v.sock"));
  std::string asked;
  std::thread hypervisor([&] {
    test::Peer first(UniqueFD(accept(listener.get(), nullptr, nullptr)));
    asked = first.readLine().value_or("");
    first.send("OK 1073741824\n{\"ok\":false}\n");
    test::Peer second(UniqueFD(accept(listener.get(), nullptr, nullptr)));
    second.readLine();
  });
  const MuxAddress address{dir.path("v.sock"), 99};
  AgentConnection connection(connectTo(address));
  awaitAnswer(connection);
  EXPECT_EQ(asked, "CONNECT 99");
  EXPECT_THROW(connectTo(address), ProtocolError);
  hypervisor.join();
  EXPECT_THROW(connectTo(address, brief), ProtocolError);  // queued, and never answered
  listen(listener.get(), 0);
  EXPECT_THROW(connectTo(address, brief), AgentError);  // no room in the queue
}

TEST(Connect, PathsMayBeLongerThanAnAddress) {
  const test::TempDir dir;
  const UniqueFD listener = test::listenAt(dir.path("a.sock"));
  const std::string folder = dir.path(std::string(200, 'x'));
  std::filesystem::create_directories(folder);
  std::filesystem::rename(dir.path("a.sock"), folder + "/a.sock");
  EXPECT_TRUE(connectTo(UnixAddress{folder + "/a.sock"}));
}

TEST(Connect, ProgramsAreConnections) {
  AgentConnection connection(connectTo(ProgramAddress{"read line; echo \"$line\"; cat"}));
  EXPECT_EQ(connection.request(Json{{"op", "ping"}}), (Json{{"op", "ping"}}));
  connection.send(Json{{"op", "more"}});
  connection.endSending();
  EXPECT_EQ(connection.waitForLine(Deadline::max()), R"({"op":"more"})");
  EXPECT_EQ(connection.waitForLine(Deadline::max()), std::nullopt);

  AgentConnection silent(connectTo(ProgramAddress{"cat >/dev/null"}));
  EXPECT_THROW(awaitAnswer(silent, brief), ProtocolError);
}

}  // namespace
}  // namespace tervain
