// What the real executable says of a desktop that comes, hangs, goes away and comes back.

#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>

#include "Support/AgentProcess.h"
#include "Support/Server.h"

namespace tervain {
namespace {

using test::AgentProcess;
using test::eventually;
using test::Peer;
using test::Server;

/// A display number that nobody else is likely to take.
const std::string display = ":" + std::to_string(3000 + getpid() % 20'000);

std::unique_ptr<Server> startX() {
  return std::make_unique<Server>(std::vector<std::string>{"/usr/bin/Xvfb", display, "-displayfd",
                                                           "1", "-screen", "0", "1280x800x24",
                                                           "-nolisten", "tcp", "-noreset"});
}

class Status : public testing::Test {
 protected:
  Json ping() { return host_.ask(R"({"op":"ping"})"); }
  Json readiness() { return ping()["readiness"]; }
  Json cursor() { return host_.ask(R"({"op":"cursor_position"})"); }

  bool becomes(const Json& expected) {
    return eventually([&] { return readiness() == expected; });
  }

  static Json grants(bool accessibility, bool screen) {
    return {{"accessibility", accessibility}, {"screenRecording", screen}, {"postEvent", screen}};
  }

  /// A look at everything, however badly the desktop behaves, takes no longer than this.
  static constexpr std::chrono::seconds bounded{6};

  test::TempDir runtime_;
  Server bus_{{"/usr/bin/dbus-daemon", "--session", "--nofork", "--nosyslog", "--print-address=1"},
              {{"XDG_RUNTIME_DIR", runtime_.path()}}};
  AgentProcess agent_{
      {.environment = {{"DISPLAY", display}, {"DBUS_SESSION_BUS_ADDRESS", bus_.line()}},
       .prefix = {}}};
  Peer host_ = agent_.connect();
};

TEST_F(Status, FollowsADisplayThatComesAndGoes) {
  // The first look makes the session bus start the accessibility bus, which takes its time.
  EXPECT_TRUE(becomes(grants(true, false)));
  EXPECT_EQ(ping()["displays"], Json::array());
  EXPECT_FALSE(cursor().value("ok", true));
  for (int life = 0; life < 2; ++life) {
    const auto x = startX();
    ASSERT_FALSE(x->line().empty());
    EXPECT_EQ(readiness(), grants(true, true));
    const Json displays = ping()["displays"];
    ASSERT_EQ(displays.size(), 1U);
    EXPECT_EQ(displays[0]["width"], 1280);
    EXPECT_EQ(displays[0]["height"], 800);
    EXPECT_EQ(displays[0]["main"], true);
    // The X server puts the pointer in the middle of its screen.
    EXPECT_EQ(cursor(), (Json{{"ok", true}, {"x", 640}, {"y", 400}}));
  }
  EXPECT_EQ(readiness(), grants(true, false));
  EXPECT_FALSE(cursor().value("ok", true));
}

TEST_F(Status, ListsMonitorsWithThePrimaryAsMain) {
  const auto x = startX();
  for (const char* monitor :
       {"left 640/170x800/200+0+0 screen", "*right 640/170x600/150+640+0 none"}) {
    std::istringstream words(monitor);
    std::vector<std::string> command{"/usr/bin/xrandr", "--display", display, "--setmonitor"};
    for (std::string word; words >> word;) {
      command.push_back(word);
    }
    ASSERT_EQ(test::runToEnd(command, {}).status, 0);
  }
  Json displays = ping()["displays"];
  ASSERT_EQ(displays.size(), 2U);
  if (displays[0]["main"] == true) {  // the server lists the primary one first
    std::swap(displays[0], displays[1]);
  }
  EXPECT_NE(displays[0]["id"], displays[1]["id"]);
  EXPECT_EQ(displays[0]["height"], 800);
  EXPECT_EQ(displays[0]["main"], false);
  EXPECT_EQ(displays[1]["height"], 600);
  EXPECT_EQ(displays[1]["main"], true);
}

TEST_F(Status, DoesNotWaitForWhatHangs) {
  const auto x = startX();
  ASSERT_TRUE(becomes(grants(true, true)));
  const auto footprint = agent_.footprint();
  x->hang();
  for (int look = 0; look < 3; ++look) {
    const auto start = test::Clock::now();
    EXPECT_EQ(readiness(), grants(true, false));
    EXPECT_FALSE(cursor().value("ok", true));
    EXPECT_LT(test::Clock::now() - start, bounded);
  }
  x->resume();
  EXPECT_TRUE(becomes(grants(true, true)));
  // Only a new connection has to ask the session bus where the accessibility bus is.
  bus_.hang();
  Peer late = agent_.connect();
  const auto start = test::Clock::now();
  EXPECT_EQ(late.ask(R"({"op":"ping"})")["readiness"], grants(false, true));
  EXPECT_LT(test::Clock::now() - start, bounded);
  bus_.resume();
  EXPECT_TRUE(
      eventually([&] { return late.ask(R"({"op":"ping"})")["readiness"] == grants(true, true); }));
  late.close();
  // One connection to the X server more may be kept than before.
  EXPECT_TRUE(eventually([&] { return agent_.footprint().threads == footprint.threads; }));
  EXPECT_LE(agent_.footprint().descriptors, footprint.descriptors + 1);
}

}  // namespace
}  // namespace tervain
