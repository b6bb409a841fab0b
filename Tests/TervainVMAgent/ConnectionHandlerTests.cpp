#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <limits>

#include "ScriptedPlatform/ScriptedStatus.h"
#include "Support/HandlerConnection.h"
#include "Support/Sockets.h"
#include "Support/TempDir.h"
#include "TervainVMAgent/StartUp.h"

namespace tervain {
namespace {

using test::HandlerConnection;
using test::scriptedStatus;

class ConnectionHandlerTest : public testing::Test {
 protected:
  void TearDown() override { scriptedStatus() = {}; }

  HandlerConnection connection_;
  test::Peer& host_ = connection_.host;
};

TEST_F(ConnectionHandlerTest, HoldsFourMebibytesWithoutALineFeed) {
  const auto sendAndWait = [this](std::size_t bytes) {
    host_.send(std::string(bytes, ' '));
    return test::eventually([&] { return test::unreadBytes(host_.fd()) == 0; });
  };
  EXPECT_TRUE(sendAndWait(4'194'304));
  EXPECT_FALSE(host_.ask("").value("ok", true));
  EXPECT_TRUE(sendAndWait(4'194'305));
  EXPECT_TRUE(host_.closed());
}

TEST_F(ConnectionHandlerTest, FreesWhatEachRequestLeaves) {
  const int before = test::poolCounts().made;
  for (int requests = 1; requests <= 3; ++requests) {
    EXPECT_TRUE(host_.ask(R"({"op":"ping"})").value("ok", false));
    EXPECT_EQ(test::poolCounts().made, before + requests);
    EXPECT_TRUE(test::eventually([] { return test::poolCounts().open == 0; }));
  }
}

TEST_F(ConnectionHandlerTest, PingTellsOfDisplaysAndGrantsAnew) {
  scriptedStatus().accessibility = scriptedStatus().screenRecording = false;
  EXPECT_EQ(host_.ask(R"({"op":"ping","ignored":[]})"),
            Json::parse(R"({"ok":true,"version":2,"displays":[],"readiness":
                {"accessibility":false,"screenRecording":false,"postEvent":true}})"));
  scriptedStatus().accessibility = true;
  scriptedStatus().postEvent = false;
  scriptedStatus().displays = {{7, 1440, 900, false}, {4'000'000'000, 1, 2, true}};
  EXPECT_EQ(host_.ask(R"({"op":"ping"})"), Json::parse(R"({"ok":true,"version":2,"displays":
                [{"id":7,"width":1440,"height":900,"main":false},
                 {"id":4000000000,"width":1,"height":2,"main":true}],"readiness":
                {"accessibility":true,"screenRecording":false,"postEvent":false}})"));
  scriptedStatus().displays.assign(9, {1, 1, 1, false});
  EXPECT_EQ(host_.ask(R"({"op":"ping"})")["displays"].size(), 8U);
}

TEST_F(ConnectionHandlerTest, CursorPositionIsRoundedAwayFromZero) {
  EXPECT_EQ(host_.ask(R"({"op":"cursor_position"})").value("error", ""),
            "could not read the cursor position (no event source)");
  const std::pair<Platform::Point, std::pair<int, int>> cases[] = {
      {{100.5, 200.49}, {101, 200}}, {{10.5, -10.5}, {11, -11}}, {{-0.4, 0.0}, {0, 0}}};
  for (const auto& [at, told] : cases) {
    scriptedStatus().pointer = at;
    EXPECT_EQ(host_.ask(R"({"op":"cursor_position"})"),
              (Json{{"ok", true}, {"x", told.first}, {"y", told.second}}));
  }
}

TEST(ConnectionHandlerDeathTest, ACursorThatIsNowhereIsFatal) {
  const auto askForCursorAt = [](double x) {
    scriptedStatus().pointer = {x, 0};
    HandlerConnection connection;
    connection.host.ask(R"({"op":"cursor_position"})");
  };
  for (const double x : {std::nan(""), std::numeric_limits<double>::infinity(), 0x1p63}) {
    EXPECT_DEATH(askForCursorAt(x), "fatal error: a coordinate");
  }
}

TEST_F(ConnectionHandlerTest, ShellEventsAreAnyBytesUpToFourMebibytes) {
  const test::TempDir spool;
  const auto drain = [&] {
    return host_.ask(Json{{"op", "shell-events"}, {"dir", spool.path()}}.dump());
  };
  spool.write("1.jsonl", "\xc3\xbf\xff\n");
  EXPECT_EQ(drain().value("events", ""), "w7//Cg==");
  std::filesystem::resize_file(spool.path("1.jsonl"), 4'194'304);
  EXPECT_EQ(drain().value("bytes", 0), 4'194'304);
  std::filesystem::resize_file(spool.path("1.jsonl"), 4'194'305);
  EXPECT_EQ(drain().value("truncated", false), true);
}

TEST(Reply, LinesEndPlainlyWhateverTheyHold) {
  EXPECT_EQ(Reply::success().line(), "{\"ok\":true}\n");
  EXPECT_EQ(Reply(Json{{"ok", true}, {"x", "\xff"}}).line(),
            "{\"ok\":false,\"error\":\"reply serialization failed\"}\n");
}

TEST(StartUp, ChoosesThePort) {
  for (const auto& [text, port] : {std::pair("2036", 2036U), std::pair("+2036", 2036U),
                                   std::pair("-0", 0U), std::pair("4294967295", 4294967295U)}) {
    EXPECT_EQ(choosePort(text), port) << text;
  }
  EXPECT_EQ(choosePort(nullptr), 2035U);
  for (const char* text :
       {"", "-1", " 2036", "2036 ", "0x7f3", "+", "-", "4294967296", "+-2036", "--0"}) {
    EXPECT_EQ(choosePort(text), 2035U) << text;
  }
}

}  // namespace
}  // namespace tervain
