#include <gtest/gtest.h>

#include "Support/Peer.h"
#include "VMAgentClient/Elements.h"
#include "VMAgentClient/ProtocolError.h"
#include "VMAgentClient/Refusal.h"

namespace tervain {
namespace {

constexpr std::string_view with = R"({"ok":true,"app":"A","tree":{"ref":"e1","title":"OK"}})";
constexpr std::string_view without = R"({"ok":true,"app":"A","tree":{"ref":"e1"}})";
constexpr std::string_view none = R"({"ok":false,"error":"no frontmost application to dump"})";

/// An agent that gives these replies, then the last one for ever; an empty one is none at all.
class Replies {
 public:
  explicit Replies(std::vector<std::string_view> replies)
      : peer_([replies = std::move(replies)](test::Peer& peer) {
          for (std::size_t i = 0; peer.readLine(); ++i) {
            const auto reply = replies.at(std::min(i, replies.size() - 1));
            peer.send(reply.empty() ? "" : std::string(reply) + "\n");
          }
        }),
        connection(std::move(peer_.host)) {}

 private:
  test::ScriptedPeer peer_;

 public:
  AgentConnection connection;
};

TEST(Elements, WaitsUntilSomethingIsThereOrGone) {
  const struct {
    std::vector<std::string_view> replies;
    Until until;
    bool happens;
    std::size_t matches;
    std::string_view remark;
  } cases[]{
      {{none, without, with}, Until::there, true, 1, ""},
      {{with, without}, Until::gone, true, 0, ""},
      {{with, none}, Until::gone, true, 0, ""},
      {{without}, Until::there, false, 0, "no element fits title \"ok\", of 1 in A"},
      {{with}, Until::gone, false, 1, "1 element still fits"},
      {{""}, Until::gone, false, 0, "the agent has not shown any elements in time"},
  };
  for (const auto& c : cases) {
    Replies agent(c.replies);
    const auto awaited =
        waitForElement(agent.connection, {}, {.title = "ok"}, c.until,
                       after(c.happens ? test::patience : std::chrono::seconds(1)));
    EXPECT_EQ(awaited.happened, c.happens) << c.remark;
    EXPECT_EQ(awaited.remark, c.remark);
    EXPECT_EQ(awaited.matches.size(), c.matches) << c.remark;
  }
  Replies refusing({R"({"ok":false,"error":"not granted"})"});
  EXPECT_THROW(
      waitForElement(refusing.connection, {}, {.title = "ok"}, Until::there, after(test::patience)),
      Refusal);
}

TEST(Elements, APressThatMayHaveHappenedIsNotRepeated) {
  Replies agent({R"({"ok":true,"note":"possibly"})",
                 R"-({"ok":false,"error":"AXPress failed (no)"})-",
                 R"({"ok":false,"error":"stale"})"});
  EXPECT_EQ(press(agent.connection, "e1"), "possibly");
  for (const auto& [beginning, looks] :
       {std::pair("AXPress failed (no);", true), {"stale", false}}) {
    try {
      press(agent.connection, "e1");
      FAIL();
    } catch (const Refusal& refusal) {
      const std::string_view text(refusal.what());
      EXPECT_TRUE(text.starts_with(beginning)) << text;
      EXPECT_EQ(text.find("look first") != text.npos, looks) << text;
    }
  }
}

TEST(Elements, ClicksOnlyWhereTheScreenIs) {
  const auto place = [](const char* displays, const Frame& visible) {
    const std::string reply = R"({"ok":true,"displays":)" + std::string(displays) + "}";
    Replies agent({reply});
    return placeToClick(agent.connection, {{}, visible});
  };
  constexpr auto one = R"([{"width":100,"height":80}])";
  constexpr auto two = R"([{"width":100,"height":80},{"width":100,"height":80}])";
  EXPECT_EQ(place(one, {-20, 70, 40, 40}), (ScreenPoint{10, 75}));
  EXPECT_EQ(place(two, {-20, 70, 40, 40}), (ScreenPoint{0, 90}));
  EXPECT_THROW(place(one, {100, 0, 40, 40}), NotChosen);
}

}  // namespace
}  // namespace tervain
