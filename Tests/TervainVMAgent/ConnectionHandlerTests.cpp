#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "ScriptedPlatform/ScriptedStatus.h"
#include "Support/HandlerConnection.h"
#include "Support/TempDir.h"
#include "TervainVMAgent/ConnectionHandler.h"
#include "VMAgentCore/Base64.h"

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

constexpr const char* malformed =
    "malformed request (want one JSON object per line with an \"op\")";

TEST_F(ConnectionHandlerTest, AnswersEveryLineInOrder) {
  const struct {
    std::string line;
    std::string error;
  } cases[] = {
      {"{}", malformed},
      {"[1,2]", malformed},
      {"\"ping\"", malformed},
      {"{\"op\":5}", malformed},
      {"{\"op\":\"ping\"", malformed},
      {"{\"op\":\"p\xff\"}", malformed},
      {std::string(100'000, '['), malformed},
      {"{\"op\":\"PING\"}", "unknown op 'PING' (agent protocol v2)"},
      {"{\"op\":\"a\\/b é\"}\r", "unknown op 'a/b é' (agent protocol v2)"},
      {"{\"op\":\"\"}", "unknown op '' (agent protocol v2)"},
      {"{\"op\":\"" + std::string(4'000'000, 'x') + "\"}",
       "unknown op '" + std::string(4'000'000, 'x') + "' (agent protocol v2)"},
  };
  std::string all = "\n\r\n";
  for (const auto& c : cases) {
    all += c.line + "\n";
  }
  std::thread sender([&] { host_.send(all + "{\"op\":\"ping\"}\n"); });
  for (const auto& c : cases) {
    const Json reply = host_.readJson();
    EXPECT_EQ(reply, (Json{{"ok", false}, {"error", c.error}})) << c.line.substr(0, 50);
  }
  EXPECT_TRUE(host_.readJson().value("ok", false));
  sender.join();
}

TEST_F(ConnectionHandlerTest, TakesRequestsHoweverTheyArrive) {
  for (const char c : std::string_view("{\"op\":\"ping\"}\r\n{\"op\":\"ping\"}\n")) {
    host_.send({&c, 1});
  }
  EXPECT_TRUE(host_.readJson().value("ok", false));
  EXPECT_TRUE(host_.readJson().value("ok", false));
  // A last line that is not complete gets no reply.
  host_.send("{\"op\":\"ping\"}");
  shutdown(host_.fd(), SHUT_WR);
  EXPECT_TRUE(host_.closed());
}

TEST_F(ConnectionHandlerTest, BoundsALineWithoutEnd) {
  // 4 MiB may wait for their line feed…
  const std::string most = "{\"op\":\"" + std::string(4'194'304 - 7, 'x');
  host_.send(most);
  host_.send("\"}\n");
  EXPECT_EQ(host_.readJson().value("ok", true), false);
  // …but not one byte more.
  host_.send(std::string(4'194'304 + 65'536, 'x'));
  EXPECT_TRUE(host_.closed());
}

TEST_F(ConnectionHandlerTest, PingTellsOfDisplaysAndGrantsAnew) {
  scriptedStatus() = {false, false, false, {}, {}};
  EXPECT_EQ(host_.ask(R"({"op":"ping","ignored":[]})"),
            Json::parse(R"({"ok":true,"version":2,"displays":[],"readiness":
                {"accessibility":false,"screenRecording":false,"postEvent":false}})"));
  scriptedStatus() = {true, false, true, {{7, 1440, 900, false}, {4'000'000'000, 1, 2, true}}, {}};
  EXPECT_EQ(host_.ask(R"({"op":"ping"})"), Json::parse(R"({"ok":true,"version":2,"displays":
                [{"id":7,"width":1440,"height":900,"main":false},
                 {"id":4000000000,"width":1,"height":2,"main":true}],"readiness":
                {"accessibility":true,"screenRecording":false,"postEvent":true}})"));
  scriptedStatus().displays.assign(9, {1, 1, 1, false});
  EXPECT_EQ(host_.ask(R"({"op":"ping"})")["displays"].size(), 8U);
}

TEST_F(ConnectionHandlerTest, CursorPositionIsRoundedAwayFromZero) {
  EXPECT_EQ(host_.ask(R"({"op":"cursor_position"})").value("error", ""),
            "could not read the cursor position (no event source)");
  const struct {
    Platform::Point at;
    std::int64_t x;
    std::int64_t y;
  } cases[] = {{{100.5, 200.49}, 101, 200}, {{10.5, -10.5}, 11, -11}, {{-0.4, 0.0}, 0, 0}};
  for (const auto& c : cases) {
    scriptedStatus().pointer = c.at;
    EXPECT_EQ(host_.ask(R"({"op":"cursor_position"})"),
              (Json{{"ok", true}, {"x", c.x}, {"y", c.y}}));
  }
}

void askForCursorAt(double x) {
  scriptedStatus().pointer = {x, 0};
  HandlerConnection connection;
  connection.host.ask(R"({"op":"cursor_position"})");
}

TEST(ConnectionHandlerDeathTest, ACursorThatIsNowhereIsFatal) {
  for (const double x : {std::nan(""), std::numeric_limits<double>::infinity(), 1e19}) {
    EXPECT_DEATH(askForCursorAt(x), "fatal error: a coordinate");
  }
}

TEST_F(ConnectionHandlerTest, ShellEventsAreDeletedOnlyWhenAskedFor) {
  const test::TempDir spool;
  const std::string events = "{\"path\":\"/\xc3\xbf\xff\"}\n";
  spool.write("1.jsonl", events);
  spool.write("2.jsonl", "");
  const auto drain = [&](const char* options) {
    return host_.ask(R"({"op":"shell-events","dir":")" + spool.path() + "\"" + options + "}");
  };
  std::string encoded = "\"";
  appendBase64(encoded, events);
  const Json full = {{"ok", true},
                     {"events", Json::parse(encoded + "\"")},
                     {"files", 2},
                     {"bytes", events.size()},
                     {"truncated", false}};
  const Json empty =
      Json::parse(R"({"ok":true,"events":"","files":0,"bytes":0,"truncated":false})");
  for (const char* options :
       {"", R"(,"truncate":"true")", R"(,"truncate":0)", R"(,"maxBytes":"1")"}) {
    EXPECT_EQ(drain(options), full) << options;
  }
  EXPECT_EQ(drain(R"(,"maxBytes":0)").value("truncated", false), true);
  EXPECT_EQ(drain(R"(,"truncate":1)"), full);
  EXPECT_EQ(drain(""), empty);
  EXPECT_FALSE(spool.has("1.jsonl"));
  EXPECT_EQ(host_.ask(R"({"op":"shell-events","dir":"/nowhere"})"), empty);
  EXPECT_TRUE(host_.ask(R"({"op":"ping"})").value("ok", false));
}

TEST_F(ConnectionHandlerTest, ReplyLinesEndPlainlyWhateverTheyHold) {
  EXPECT_EQ(Reply::success().line(), "{\"ok\":true}\n");
  EXPECT_EQ(Reply(Json{{"ok", true}, {"x", "\xff"}}).line(),
            "{\"ok\":false,\"error\":\"reply serialization failed\"}\n");
}

}  // namespace
}  // namespace tervain
