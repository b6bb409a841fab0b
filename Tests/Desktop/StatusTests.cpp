// What the real executable says of a desktop that comes, hangs, goes away and comes back.

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <xcb/xproto.h>

#include <csignal>
#include <future>
#include <memory>

#include "CVsock/cvsock.h"
#include "Support/AgentProcess.h"
#include "Support/Sockets.h"
#include "VMAgentCore/IO.h"

namespace tervain {
namespace {

using test::AgentProcess;
using test::eventually;
using test::Peer;
using test::Program;

/// A display number that nobody else is likely to take.
const std::string display = ":" + std::to_string(3000 + getpid() % 20'000);

std::unique_ptr<Program> startX() {
  auto server = std::make_unique<Program>(
      std::vector<std::string>{"Xvfb", display, "-displayfd", "1", "-screen", "0", "1280x800x24",
                               "-nolisten", "tcp", "-noreset"});
  EXPECT_FALSE(server->line().empty());
  return server;
}

const std::string type = R"({"op":"type","text":"漢字"})";
const std::string screenshot = R"({"op":"screenshot"})";

class Status : public testing::Test {
 protected:
  Json ping() { return host_.ask(R"({"op":"ping"})"); }
  Json readiness() { return ping()["readiness"]; }
  Json cursor() { return host_.ask(R"({"op":"cursor_position"})"); }

  bool works(const std::string& request) { return host_.ask(request).value("ok", false); }

  bool becomes(const Json& expected) {
    return eventually([&] { return readiness() == expected; });
  }

  static Json grants(bool accessibility, bool screen) {
    return {{"accessibility", accessibility}, {"screenRecording", screen}, {"postEvent", screen}};
  }

  static Environment busEnvironment(const std::string& runtime) {
    Environment environment = processEnvironment();
    environment["XDG_RUNTIME_DIR"] = runtime;
    return environment;
  }

  /// A look at everything, however badly the desktop behaves, takes no longer than this.
  static constexpr std::chrono::seconds bounded{10};

  test::TempDir runtime_;
  Program bus_{{"dbus-daemon", "--session", "--nofork", "--nosyslog", "--print-address=1"},
               busEnvironment(runtime_.path())};
  AgentProcess agent_{
      {.environment = {{"DISPLAY", display}, {"DBUS_SESSION_BUS_ADDRESS", bus_.line()}}}};
  Peer host_ = agent_.connect();
};

TEST_F(Status, FollowsADisplayThatComesAndGoes) {
  // The first look makes the session bus start the accessibility bus, which takes its time.
  EXPECT_TRUE(becomes(grants(true, false)));
  EXPECT_EQ(ping()["displays"], Json::array());
  EXPECT_FALSE(cursor().value("ok", true));
  std::vector<std::size_t> threads;
  for (int life = 0; life < 2; ++life) {
    const auto x = startX();
    EXPECT_TRUE(becomes(grants(true, true)));
    const Json displays = ping()["displays"];
    ASSERT_EQ(displays.size(), 1U);
    EXPECT_EQ(displays[0]["width"], 1280);
    EXPECT_EQ(displays[0]["height"], 800);
    EXPECT_EQ(displays[0]["main"], true);
    // The X server puts the pointer in the middle of its screen.
    EXPECT_EQ(cursor(), (Json{{"ok", true}, {"x", 640}, {"y", 400}}));
    EXPECT_TRUE(works(type)) << "on a server that came back too";
    EXPECT_TRUE(works(screenshot));
    threads.push_back(agent_.footprint().threads);
  }
  EXPECT_TRUE(eventually([&] { return agent_.footprint().threads <= threads.front(); }));
  EXPECT_FALSE(works(type));
  EXPECT_FALSE(works(screenshot));
  EXPECT_TRUE(becomes(grants(true, false)));
  EXPECT_FALSE(cursor().value("ok", true));
}

TEST_F(Status, DoesNotWaitForWhatHangs) {
  const auto x = startX();
  ASSERT_TRUE(becomes(grants(true, true)));
  const auto footprint = agent_.footprint();
  x->signal(SIGSTOP);
  for (int look = 0; look < 3; ++look) {
    const auto start = Clock::now();
    EXPECT_EQ(readiness(), grants(true, false));
    EXPECT_FALSE(cursor().value("ok", true));
    EXPECT_LT(Clock::now() - start, bounded);
  }
  x->signal(SIGCONT);
  EXPECT_TRUE(becomes(grants(true, true)));
  // Only a new connection has to ask the session bus where the accessibility bus is.
  bus_.signal(SIGSTOP);
  Peer late = agent_.connect();
  const auto start = Clock::now();
  EXPECT_EQ(late.ask(R"({"op":"ping"})")["readiness"], grants(false, true));
  EXPECT_LT(Clock::now() - start, bounded);
  bus_.signal(SIGCONT);
  EXPECT_TRUE(
      eventually([&] { return late.ask(R"({"op":"ping"})")["readiness"] == grants(true, true); }));
  late.close();
  // The attempts to connect that hung have left up to three more connections to be kept.
  EXPECT_TRUE(eventually([&] {
    const auto now = agent_.footprint();
    return now.threads <= footprint.threads && now.descriptors <= footprint.descriptors + 3;
  })) << testing::PrintToString(agent_.footprint());
}

/// Lets one client in, as a server with one screen, and goes at its first request.
void leaveAtOnce(int listener) {
  struct {
    xcb_setup_t setup{};
    xcb_screen_t screen{};
  } welcome;
  welcome.setup.status = 1;
  welcome.setup.protocol_major_version = 11;
  welcome.setup.length = (sizeof welcome - 8) / 4;
  welcome.setup.maximum_request_length = 65'535;
  welcome.setup.roots_len = 1;
  const UniqueFD client(accept(listener, nullptr, nullptr));
  char request[64];
  readSome(client.get(), request);
  writeAll(client.get(), {reinterpret_cast<const char*>(&welcome), sizeof welcome});
  readSome(client.get(), request);
}

TEST_F(Status, OutlivesAServerThatLeavesAtOnce) {
  const UniqueFD listener = test::closedOnExec(socket(AF_INET, SOCK_STREAM, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  ASSERT_EQ(bind(listener.get(), generic, size) | listen(listener.get(), 1), 0);
  getsockname(listener.get(), generic, &size);
  constexpr int firstPort = 6000;
  const int number = ntohs(address.sin_port) - firstPort;
  const auto left = std::async(std::launch::async, leaveAtOnce, listener.get());
  const AgentProcess agent(
      {.environment = {{"DISPLAY", "127.0.0.1:" + std::to_string(number)}}, .prefix = {}});
  left.wait();
  EXPECT_EQ(agent.connect().ask(R"({"op":"ping"})")["readiness"], grants(false, false));
}

// A server and a bus, but no window manager, nothing on the screen, and another has the port.
TEST_F(Status, IsCheckedUp) {
  const auto x = startX();
  ASSERT_TRUE(becomes(grants(true, true)));
  const std::uint32_t number = 30'000 + static_cast<std::uint32_t>(getpid()) % 30'000;
  const std::string port = std::to_string(number);
  const int socket = tervain_vsock_listen(number, 1);
  const auto expect = [](std::vector<std::string> command, const auto& environment,
                         const std::vector<std::string>& rows) {
    command.insert(command.end(), {AGENT_PATH, "--check"});
    const auto ended = test::runToEnd(command, environment);
    EXPECT_EQ(ended.status, 1);
    for (const std::string& row : rows) {
      EXPECT_NE(ended.err.find(row), std::string::npos) << row << "\n" << ended.err;
    }
  };
  using Variables = std::map<std::string, std::string>;
  expect({},
         Variables{{"DISPLAY", display},
                   {"DBUS_SESSION_BUS_ADDRESS", bus_.line()},
                   {"TERVAIN_AGENT_PORT", port}},
         {"WRONG    window manager", "WRONG    picture             1280x800 pixels of one colour\n",
          "fine     accessibility bus   answers\n",
          "fine     pointer             moved, and put back\n",
          "fine     shell               /bin/zsh runs commands\n",
          socket >= 0 ? "port                vsock port " + port + " is in use" : "WRONG    port"});
  close(socket);
  expect({SERVE_UNIX_PATH, runtime_.path("agent")},
         Variables{{"DISPLAY", ":nowhere"}, {"TERVAIN_DULK_DISABLE", "0"}},
         {"WRONG    X server            none answers at :nowhere", "WRONG    session bus",
          "WRONG    accessibility       not granted", "unsure   picture             not tried",
          "WRONG    shell               /usr/local/bin/dulk is not there\n",
          "fine     port                a listening socket is handed over\n"});
  EXPECT_EQ(cursor(), (Json{{"ok", true}, {"x", 640}, {"y", 400}}));
}

}  // namespace
}  // namespace tervain
