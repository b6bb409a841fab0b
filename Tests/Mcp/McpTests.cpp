#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

#include "Support/Peer.h"
#include "tervainctl/Mcp/Server.h"
#include "tervainctl/Mcp/Texts.h"

namespace tervain::mcp {
namespace {

/// An application with a button whose title is "title 0", and many more. Refs begin at e1 on every
/// connection, as an agent's do.
std::string manyButtons() {
  Json tree{{"ref", "e1"}, {"role", "AXApplication"}, {"children", Json::array()}};
  for (int i = 0; i < 700; ++i) {
    tree["children"].push_back({{"ref", "e" + std::to_string(i + 2)},
                                {"role", "AXButton"},
                                {"title", "title " + std::to_string(i) + std::string(200, 'x')},
                                {"frame", {{"x", 200}, {"y", 100}, {"w", 40}, {"h", 20}}}});
  }
  return Json{{"ok", true}, {"app", "A"}, {"tree", tree}}.dump();
}

/// A server and its host, and an agent that knows trees and counts what it is asked.
class Host {
 public:
  Host() : server_([this] { return connect(); }, [this](auto line) { take(line); }, "1") {}

  /// The next message for a line.
  Json ask(const std::string& line) {
    server_.receive(line);
    std::unique_lock lock(mutex_);
    came_.wait_for(lock, test::patience, [this] { return !messages_.empty(); });
    const Json message = messages_.empty() ? Json() : messages_.front();
    messages_.clear();
    return message;
  }

  /// The text of a tool's result.
  std::string call(const char* name, const Json& arguments = Json::object()) {
    const Json params{{"name", name}, {"arguments", arguments}};
    const Json reply =
        ask(Json{{"jsonrpc", "2.0"}, {"id", ++id_}, {"method", "tools/call"}, {"params", params}}
                .dump());
    return reply.at("result").at("content").at(0).at("text");
  }

  Json last;  // request of an agent, but for those of trees

 private:
  UniqueFD connect() {
    agents_.emplace_back([this](test::Peer& peer) {
      while (const auto line = peer.readLine()) {
        const Json request = Json::parse(*line);
        const bool dump = request.at("op") == "ax_dump";
        last = dump ? last : request;
        peer.send((dump ? manyButtons() : R"({"ok":true})") + "\n");
      }
    });
    return std::move(agents_.back().host);
  }

  void take(std::string_view line) {
    const std::lock_guard lock(mutex_);
    messages_.push_back(Json::parse(line));
    came_.notify_one();
  }

  std::vector<test::ScriptedPeer> agents_;
  std::mutex mutex_;
  std::condition_variable came_;
  std::vector<Json> messages_;
  int id_ = 0;
  Server server_;
};

TEST(Mcp, AnswersBothErasAndRefusesWhatIsNoMessage) {
  Host host;
  const auto initialize = [](const char* version) {
    return R"({"jsonrpc":"2.0","id":"a","method":"initialize","params":{"protocolVersion":")" +
           std::string(version) + "\"}}";
  };
  const auto stateless = [](const char* version) {
    return R"({"jsonrpc":"2.0","id":1,"method":"tools/list","params":{"_meta":)"
           R"({"io.modelcontextprotocol/protocolVersion":")" +
           std::string(version) + "\"}}}";
  };
  const struct {
    std::string line;
    const char* at;
    Json value;
  } cases[]{
      {initialize("2025-03-26"), "/result/protocolVersion", "2025-03-26"},
      {initialize("1999-01-01"), "/result/protocolVersion", "2025-11-25"},
      {R"({"jsonrpc":"2.0","id":1,"method":"server/discover"})", "/result/supportedVersions/0",
       "2026-07-28"},
      {stateless("2026-07-28"), "/result/resultType", "complete"},
      {stateless("2099-01-01"), "/error/code", -32022},
      {R"({"jsonrpc":"2.0","id":1,"method":"ping"})", "/result", Json::object()},
      {R"({"jsonrpc":"2.0","id":1,"method":"nothing"})", "/error/code", -32601},
      {R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":7}})", "/error/code",
       -32602},
      {R"({"jsonrpc":"2.0","id":1,"method":"ping","params":[]})", "/error/code", -32600},
      {R"({"jsonrpc":"2.0","id":{},"method":"ping"})", "/error/code", -32600},
      {"[]", "/error/code", -32600},
      {"{", "/error/code", -32700},
      {"\"\xff\"", "/error/code", -32700},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(host.ask(c.line).at(Json::json_pointer(c.at)), c.value) << c.line;
  }
}

TEST(Mcp, CutsOutlinesBehindWholeElementsAndKeepsRefsApart) {
  Host host;
  const std::string outline = host.call("snapshot");
  EXPECT_LE(outline.size(), mostText);
  EXPECT_NE(outline.find("\n[cut here: "), outline.npos);
  EXPECT_EQ(host.call("snapshot").substr(0, 5), "e702 ");
  EXPECT_EQ(host.call("press", {{"ref", "e703"}}), "Done.");
  EXPECT_EQ(host.last.at("ref"), "e2");
  EXPECT_EQ(host.call("click", {{"ref", "e2"}}), "Done.");
  EXPECT_EQ(host.last.at("x"), 220);
  EXPECT_NE(host.call("press", {{"ref", "e99999"}}).find("never given"), std::string::npos);
}

TEST(Mcp, ChecksArgumentsAgainstTheirSchemas) {
  Host host;
  const std::tuple<const char*, Json, const char*> cases[]{
      {"move", {{"x", 1}}, "y is missing"},
      {"move", {{"x", 1e300}, {"y", 1}}, "x: 1e+300 is not from"},
      {"scroll", {{"dy", 1.5}}, "dy: 1.5 is not a whole number"},
      {"scroll", {{"dy", 18446744073709551615U}}, "is not a whole number"},
      {"click", {{"x", 1}, {"y", 1}, {"button", "fourth"}}, "is not one of left"},
      {"click", {{"x", 1}, {"ref", "e1"}, {"y", 1}}, "not both"},
      {"drag", {{"toX", 1}, {"toY", 1}, {"from", {{"x", 1}}}}, "whole numbers: x, y"},
      {"find", {{"role", ""}}, "an empty text"},
      {"find", {{"title", "a"}, {"exact", "yes"}}, "true or false"},
  };
  for (const auto& [tool, arguments, words] : cases) {
    EXPECT_NE(host.call(tool, arguments).find(words), std::string::npos) << words;
  }
}

TEST(Mcp, TakesPlacesInPicturesForThoseOnTheScreen) {
  Space space;
  EXPECT_EQ(space.toScreen(10, -3), (ScreenPoint{10, -3}));
  space.use({"", 1280, 800, 1280.0 / 1440, {}});  // of 2880 pixels, two a point
  EXPECT_EQ(space.toScreen(1279, 799), (ScreenPoint{1439, 899}));
  EXPECT_EQ(space.fromScreen(Frame{720, 450, 144, 90}), (Frame{640, 400, 128, 80}));
  space.use({"", 200, 100, 2, {300, 50}});  // a part of it, as sharp as it is
  EXPECT_EQ(space.toScreen(100, 50), (ScreenPoint{350, 75}));
  EXPECT_EQ(space.toScreen(Frame{0, 0, 200, 100}), (Frame{300, 50, 100, 50}));
}

TEST(Mcp, KeepsTheBeginningAndTheEndOfOutput) {
  BoundedOutput output(8);
  output.append("abc");
  output.append("defgh");
  EXPECT_FALSE(output.truncated());
  EXPECT_EQ(output.text(), "abcdefgh");
  output.append(std::string(100, 'i') + "\xffwxy");
  EXPECT_TRUE(output.truncated());
  EXPECT_EQ(output.text(), "abcd\n[104 bytes left out here]\n\xEF\xBF\xBDwxy");
}

}  // namespace
}  // namespace tervain::mcp
