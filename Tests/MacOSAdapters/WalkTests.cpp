// Dumps over the macOS port, of an application that counts what it is asked.

#include <gtest/gtest.h>

#include "MacOSAdapters/FakeSystem.h"
#include "ScriptedPlatform/ScriptedStatus.h"
#include "Support/HandlerConnection.h"

namespace tervain {
namespace {

using namespace std::chrono_literals;
using test::countNodes;

/// A tree of three levels below the application.
std::size_t thirtyEach(const std::string& element) {
  return std::count(element.begin(), element.end(), ' ') < 4 ? 30 : 0;
}

class MacOSWalks : public testing::Test {
 protected:
  MacOSWalks() { system_.application.childCount = thirtyEach; }

  Json dump() {
    test::HandlerConnection connection;
    return connection.host.ask(R"({"op":"ax_dump","pid":42})");
  }

  Fake::System system_;
};

TEST_F(MacOSWalks, TakeThreeMessagesANode) {
  const Json reply = dump();
  EXPECT_EQ(countNodes(reply["tree"]), 800);
  EXPECT_EQ(reply["tree"]["children"][0]["children"][1]["role"], "application 42 0 1");
  EXPECT_LE(system_.application.messages, 3 * 800);
  system_.application.knowsLists = false;
  EXPECT_EQ(countNodes(dump()["tree"]), 800);
}

TEST_F(MacOSWalks, CopyNoMoreChildrenThanTheyLookAt) {
  system_.application.childCount = [](const std::string& element) -> std::size_t {
    return element == "application 42" ? 5000 : 0;
  };
  const Json tree = dump()["tree"];
  EXPECT_EQ(tree["children"].size(), 48U);
  EXPECT_EQ(tree["childrenOmitted"], 5000 - 48);
  EXPECT_LT(system_.objects.size(), 1000U);
}

TEST_F(MacOSWalks, EndWhenTheApplicationDoesNotAnswer) {
  const struct {
    int answersLeft;
    bool isDead;
    std::chrono::duration<float> answersIn;
    std::chrono::duration<float> lasts;
  } cases[] = {{0, false, 0s, 3s},      // silent from the start
               {600, false, 0s, 3s},    // silent in the middle
               {600, true, 0s, 0s},     // dies in the middle
               {9999, false, 1s, 10s},  // slow
               {9999, false, 2s, 3s}};  // too slow
  for (const auto& [answersLeft, isDead, answersIn, lasts] : cases) {
    system_.uptime = 0s;
    system_.application.answersLeft = answersLeft;
    system_.application.isDead = isDead;
    system_.application.answersIn = answersIn;
    const Json reply = dump();
    EXPECT_TRUE(reply["ok"]);
    EXPECT_EQ(reply["tree"]["ref"], "e1");
    EXPECT_EQ(countNodes(reply["tree"]) > 100, answersLeft == 600) << reply.dump();
    EXPECT_NEAR(system_.uptime.count(), lasts.count(), 0.02);
  }
}

TEST_F(MacOSWalks, LeaveElementsAsTheyWere) {
  test::HandlerConnection connection;
  connection.host.ask(R"({"op":"ax_dump","pid":42})");
  for (const char* ref : {"e1", "e2"}) {  // the application's own timeout stays
    system_.uptime = 0s;
    system_.application.answersLeft = 0;
    connection.host.ask(Json{{"op", "ax_focus"}, {"ref", ref}}.dump());
    EXPECT_NEAR(system_.uptime.count(), ref == std::string("e1") ? 1.5 : 6, 0.02);
  }
}

TEST_F(MacOSWalks, AskEachApplicationOnceForItsElements) {
  const std::string question = "AXManualAccessibility of application 42 = true";
  for (const auto& [start, times] : {std::pair(1, 1), {1, 1}, {2, 2}}) {
    system_.processStart = static_cast<std::uint64_t>(start);
    dump();
    EXPECT_EQ(std::count(system_.requests.begin(), system_.requests.end(), question), times);
  }
}

}  // namespace
}  // namespace tervain
