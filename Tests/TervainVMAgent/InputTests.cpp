#include <gtest/gtest.h>

#include <string>
#include <vector>

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
  ~InputTest() override {
    scriptedStatus() = {};
    scriptedEvents() = {};
  }

  /// What a request posts; it must succeed.
  Lines posted(const std::string& request) {
    scriptedEvents().posted.clear();
    EXPECT_EQ(connection_.host.ask(request), (Json{{"ok", true}})) << request;
    return scriptedEvents().posted;
  }

  /// The error that a request gets.
  std::string error(const std::string& request) {
    const Json reply = connection_.host.ask(request);
    EXPECT_EQ(reply.size(), 2U) << reply;
    EXPECT_EQ(reply.value("ok", true), false) << request;
    return reply.value("error", "");
  }

  test::HandlerConnection connection_;
};

Lines click(const std::string& down, const std::string& up, int count) {
  Lines lines{"moved 10,20 left"};
  for (int n = 1; n <= count; ++n) {
    if (n > 1) {
      lines.emplace_back("wait 90000");
    }
    const std::string state = " click " + std::to_string(n);
    lines.insert(lines.end(), {down + state, "wait 40000", up + state});
  }
  return lines;
}

TEST_F(InputTest, ClicksWithTheButtonAndCountAskedFor) {
  const Lines left = click("leftDown 10,20 left", "leftUp 10,20 left", 1);
  const Lines triple = click("leftDown 10,20 left", "leftUp 10,20 left", 3);
  const struct {
    const char* members;
    Lines expected;
  } cases[] = {
      {"", left},
      {R"(,"count":0)", left},
      {R"(,"count":-7)", left},
      {R"(,"count":"2")", left},
      {R"(,"count":2)", click("leftDown 10,20 left", "leftUp 10,20 left", 2)},
      {R"(,"count":3)", triple},
      {R"(,"count":9223372036854775807)", triple},
      {R"(,"button":"right")", click("rightDown 10,20 right", "rightUp 10,20 right", 1)},
      {R"(,"button":"middle","count":2)",
       click("otherDown 10,20 center", "otherUp 10,20 center", 2)},
      {R"(,"button":"Middle")", left},
      {R"(,"button":2)", left},
  };
  for (const auto& c : cases) {
    const std::string request = R"({"op":"click","x":10.9,"y":20)" + std::string(c.members) + "}";
    EXPECT_EQ(posted(request), c.expected) << request;
  }
}

TEST_F(InputTest, MovesAnywhere) {
  EXPECT_EQ(posted(R"({"op":"move","x":-3.9,"y":100000})"), Lines{"moved -3,100000 left"});
}

Lines drag(const std::string& start, const Lines& steps) {
  Lines lines{"moved " + start + " left", "wait 60000", "leftDown " + start + " left"};
  for (const std::string& step : steps) {
    lines.insert(lines.end(), {"wait 15000", "leftDragged " + step + " left"});
  }
  lines.insert(lines.end(), {"wait 60000", "leftUp " + steps.back() + " left"});
  return lines;
}

TEST_F(InputTest, DragsInTwelveStepsFromWhereThePointerIs) {
  scriptedStatus().pointer = {{5.5, 6}};
  const Lines steps{"11,26", "12,32", "13,38", "14,44", "15,50", "16,56",
                    "17,62", "18,68", "19,74", "20,80", "21,86", "22,92"};
  EXPECT_EQ(posted(R"({"op":"drag","toX":22,"toY":92,"fromX":10,"fromY":20})"),
            drag("10,20", steps));
  EXPECT_EQ(posted(R"({"op":"drag","toX":5.5,"toY":20,"fromX":5,"fromY":20})"),
            drag("5,20", Lines(12, "5,20")));
  EXPECT_EQ(posted(R"({"op":"drag","toX":1,"toY":2,"fromY":"7"})").front(), "moved 5.5,6 left");
  EXPECT_EQ(posted(R"({"op":"drag","toX":1,"toY":2,"fromY":7})").front(), "moved 5.5,7 left");
  scriptedStatus().pointer.reset();
  EXPECT_EQ(posted(R"({"op":"drag","toX":1,"toY":2})").front(), "moved 0,0 left");
}

TEST_F(InputTest, ScrollsOnceWithinBounds) {
  const struct {
    const char* members;
    const char* expected;
  } cases[] = {
      {R"("dy":3)", "scroll 3,0"},
      {R"("dx":5)", "scroll 0,5"},
      {R"("dy":1000,"dx":-41)", "scroll 40,-40"},
      {R"("dy":-9223372036854775808,"dx":0)", "scroll -40,0"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(posted(R"({"op":"scroll",)" + std::string(c.members) + "}"), Lines{c.expected});
  }
}

TEST_F(InputTest, TypesInChunksOfSixteenUnits) {
  EXPECT_EQ(posted(R"({"op":"type","text":"aé\n"})"),
            (Lines{"key 0 down text 61 e9 a", "key 0 up text 61 e9 a", "wait 12000"}));
  // A pair that straddles the boundary is split.
  const std::string units = " 61 61 61 61 61 61 61 61 61 61 61 61 61 61 61";
  EXPECT_EQ(
      posted(R"({"op":"type","text":"aaaaaaaaaaaaaaa😀漢"})"),
      (Lines{"key 0 down text" + units + " d83d", "key 0 up text" + units + " d83d", "wait 12000",
             "key 0 down text de00 6f22", "key 0 up text de00 6f22", "wait 12000"}));
  EXPECT_EQ(posted(R"({"op":"type","text":")" + std::string(1000, 'x') + "\"}").size(), 3U * 63);
}

TEST_F(InputTest, PressesChords) {
  EXPECT_EQ(posted(R"({"op":"key","chord":"Cmd+Shift+Z"})"),
            (Lines{"key 6 down flags 120000", "wait 30000", "key 6 up flags 120000"}));
  EXPECT_EQ(posted(R"({"op":"key","chord":"enter"})"),
            (Lines{"key 36 down flags 0", "wait 30000", "key 36 up flags 0"}));
}

TEST_F(InputTest, RefusesWhatItCannotDo) {
  const struct {
    const char* request;
    const char* error;
  } cases[] = {
      {R"({"op":"click","x":"10","y":1})", "click requires x and y"},
      {R"({"op":"move","x":1})", "move requires x and y"},
      {R"({"op":"drag","fromX":1,"toY":1})", "drag requires toX and toY"},
      {R"({"op":"scroll","dx":0,"dy":0.9})", "scroll requires dx and/or dy"},
      {R"({"op":"scroll"})", "scroll requires dx and/or dy"},
      {R"({"op":"type","text":""})", "type requires non-empty \"text\""},
      {R"({"op":"type","text":5})", "type requires non-empty \"text\""},
      {R"({"op":"key","chord":""})", "key requires a \"chord\" (e.g. \"cmd+s\")"},
      {R"({"op":"key"})", "key requires a \"chord\" (e.g. \"cmd+s\")"},
      {R"({"op":"key","chord":"Cmd+Ä"})", "unrecognized key in chord \"Cmd+Ä\""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(error(c.request), c.error);
  }
  scriptedStatus().postEvent = false;
  for (const char* op : {"click", "move", "drag", "scroll", "type", "key"}) {
    EXPECT_EQ(error(R"({"op":")" + std::string(op) + "\"}"),
              "input synthesis (kTCCServicePostEvent) is not granted to the agent — re-run "
              "provisioning");
  }
  EXPECT_TRUE(scriptedEvents().posted.empty());
}

TEST_F(InputTest, GoesOnOrStopsWhereAnEventCannotBeMade) {
  int events = 0;
  int made = 0;
  scriptedEvents().canMake = [&] { return events++ < made; };
  const auto postedBefore = [&](int limit) {
    events = 0;
    made = limit;
    scriptedEvents().posted.clear();
  };
  // A click is given up, and what was clicked before stays clicked.
  postedBefore(4);
  EXPECT_EQ(error(R"({"op":"click","x":10,"y":20,"count":2})"), "could not create the mouse event");
  Lines once = click("leftDown 10,20 left", "leftUp 10,20 left", 1);
  once.emplace_back("wait 90000");
  EXPECT_EQ(scriptedEvents().posted, once);
  postedBefore(3);
  EXPECT_EQ(error(R"({"op":"type","text":"aaaaaaaaaaaaaaaaa"})"),
            "could not create the keyboard event");
  EXPECT_EQ(scriptedEvents().posted.size(), 3U);
  postedBefore(1);
  EXPECT_EQ(error(R"({"op":"key","chord":"a"})"), "could not create the keyboard event");
  EXPECT_EQ(error(R"({"op":"scroll","dy":1})"), "could not create the scroll event");
  EXPECT_TRUE(scriptedEvents().posted.empty());
  // A movement that can't be made is left out.
  made = 0;
  EXPECT_EQ(posted(R"({"op":"move","x":1,"y":2})"), Lines{});
  EXPECT_EQ(posted(R"({"op":"drag","toX":1,"toY":2})").size(), 14U) << "the waits stay";
}

}  // namespace
}  // namespace tervain
