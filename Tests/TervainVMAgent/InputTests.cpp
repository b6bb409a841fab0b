#include <gtest/gtest.h>

#include "ScriptedPlatform/ScriptedEvents.h"
#include "ScriptedPlatform/ScriptedStatus.h"
#include "Support/HandlerConnection.h"

namespace tervain {
namespace {

using test::scriptedEvents;
using test::scriptedStatus;

using Lines = std::vector<std::string>;

class InputTest : public testing::Test {
 protected:
  void TearDown() override {
    scriptedStatus() = {};
    scriptedEvents() = {};
  }

  /// What a request posts, given what follows its "op"; it must succeed.
  Lines posted(const std::string& op, const std::string& members) {
    scriptedEvents().posted.clear();
    EXPECT_EQ(ask(op, members), (Json{{"ok", true}})) << members;
    return scriptedEvents().posted;
  }

  void expectError(const std::string& op, const std::string& members, const std::string& error) {
    EXPECT_EQ(ask(op, members), (Json{{"ok", false}, {"error", error}})) << members;
  }

 private:
  Json ask(const std::string& op, const std::string& members) {
    return connection_.host.ask(R"({"op":")" + op + "\"" + members + "}");
  }

  test::HandlerConnection connection_;
};

/// The events of clicks at 10,20 with a button, as named in its own events and in all of them.
Lines clicks(int count, const std::string& events = "left", const std::string& button = "left") {
  Lines lines{"moved 10,20 left"};
  for (int n = 1; n <= count; ++n) {
    const std::string rest = " 10,20 " + button + " click " + std::to_string(n);
    lines.push_back(std::string(events).append("Down").append(rest));
    lines.emplace_back("wait 40000");
    lines.push_back(std::string(events).append("Up").append(rest));
    lines.emplace_back("wait 90000");
  }
  lines.pop_back();
  return lines;
}

TEST_F(InputTest, MovesAndClicksWithTheButtonAndCountAskedFor) {
  EXPECT_EQ(posted("move", R"(,"x":-3.9,"y":100000)"), Lines{"moved -3,100000 left"});
  const std::pair<const char*, Lines> cases[] = {
      {"", clicks(1)},
      {R"(,"count":0)", clicks(1)},
      {R"(,"count":"2")", clicks(1)},
      {R"(,"count":2)", clicks(2)},
      {R"(,"count":9223372036854775807)", clicks(3)},
      {R"(,"button":"right")", clicks(1, "right", "right")},
      {R"(,"button":"middle","count":2)", clicks(2, "other", "center")},
      {R"(,"button":"Middle")", clicks(1)},
      {R"(,"button":2)", clicks(1)}};
  for (const auto& [members, expected] : cases) {
    EXPECT_EQ(posted("click", R"(,"x":10.9,"y":20)" + std::string(members)), expected) << members;
  }
}

TEST_F(InputTest, DragsInTwelveStepsFromWhereThePointerIs) {
  scriptedStatus().pointer = {{5.5, 6}};
  Lines expected{"moved 10,20 left", "wait 60000", "leftDown 10,20 left"};
  for (int step = 1; step <= 12; ++step) {
    const std::string at = std::to_string(10 + step) + "," + std::to_string(20 + 6 * step);
    expected.insert(expected.end(), {"wait 15000", "leftDragged " + at + " left"});
  }
  expected.insert(expected.end(), {"wait 60000", "leftUp 22,92 left"});
  EXPECT_EQ(posted("drag", R"(,"toX":22,"toY":92,"fromX":10,"fromY":20)"), expected);
  EXPECT_EQ(posted("drag", R"(,"toX":5.5,"toY":20,"fromX":5)").back(), "leftUp 5,20 left");
  EXPECT_EQ(posted("drag", R"(,"toX":1,"toY":2,"fromY":"7")").front(), "moved 5.5,6 left");
  EXPECT_EQ(posted("drag", R"(,"toX":1,"toY":2,"fromY":7)").front(), "moved 5.5,7 left");
  scriptedStatus().pointer.reset();
  EXPECT_EQ(posted("drag", R"(,"toX":1,"toY":2)").front(), "moved 0,0 left");
}

TEST_F(InputTest, ScrollsTypesAndPressesChords) {
  const std::string units = " 61 61 61 61 61 61 61 61 61 61 61 61 61 61 61";
  const std::tuple<const char*, const char*, Lines> cases[] = {
      {"scroll", R"(,"dy":3)", {"scroll 3,0"}},
      {"scroll", R"(,"dy":1000,"dx":-41)", {"scroll 40,-40"}},
      {"scroll", R"(,"dy":-9223372036854775808,"dx":0)", {"scroll -40,0"}},
      {"type",
       R"(,"text":"aé\n")",
       {"key 0 down text 61 e9 a", "key 0 up text 61 e9 a", "wait 12000"}},
      // Sixteen units at a time: a pair that straddles the boundary is split.
      {"type",
       R"(,"text":"aaaaaaaaaaaaaaa😀漢")",
       {"key 0 down text" + units + " d83d", "key 0 up text" + units + " d83d", "wait 12000",
        "key 0 down text de00 6f22", "key 0 up text de00 6f22", "wait 12000"}},
      {"key",
       R"(,"chord":"Cmd+Shift+Z")",
       {"key 6 down flags 120000", "wait 30000", "key 6 up flags 120000"}},
  };
  for (const auto& [op, members, expected] : cases) {
    EXPECT_EQ(posted(op, members), expected);
  }
}

TEST_F(InputTest, GoesOnOrStopsWhereAnEventCannotBeMade) {
  // What was done before stays done.
  const std::tuple<int, const char*, const char*, const char*, std::size_t> cases[] = {
      {4, "click", R"(,"x":10,"y":20,"count":2)", "could not create the mouse event", 5},
      {3, "type", R"(,"text":"aaaaaaaaaaaaaaaaa")", "could not create the keyboard event", 3},
      {1, "key", R"(,"chord":"a")", "could not create the keyboard event", 0},
      {0, "scroll", R"(,"dy":1)", "could not create the scroll event", 0},
  };
  for (const auto& [made, op, members, error, count] : cases) {
    scriptedEvents() = {{}, [left = made]() mutable { return left-- > 0; }};
    expectError(op, members, error);
    EXPECT_EQ(scriptedEvents().posted.size(), count) << op;
  }
  // A movement that can't be made is left out, but not the waits.
  scriptedEvents().canMake = [] { return false; };
  EXPECT_EQ(posted("move", R"(,"x":1,"y":2)"), Lines{});
  EXPECT_EQ(posted("drag", R"(,"toX":1,"toY":2)").size(), 14U);
}

}  // namespace
}  // namespace tervain
