// The accessibility operations, driven over a connection against a scripted interface.

#include <gtest/gtest.h>

#include "ScriptedPlatform/ScriptedAccessibility.h"
#include "ScriptedPlatform/ScriptedStatus.h"
#include "Support/HandlerConnection.h"

namespace tervain {
namespace {

using enum Platform::AXAttribute;
using Platform::AXElements;
using Platform::AXError;
using Platform::AXNumber;
using Platform::AXValue;
using test::countNodes;
using test::failure;
using test::handleOf;
using test::HandlerConnection;
using test::scriptedAccessibility;
using test::scriptedStatus;
using Scripted = std::shared_ptr<test::ScriptedElement>;

const Json ok{{"ok", true}};

Scripted element(std::map<Platform::AXAttribute, AXValue> attributes = {}) {
  auto made = std::make_shared<test::ScriptedElement>();
  made->attributes = std::move(attributes);
  return made;
}

Scripted parent(const std::vector<Scripted>& elements) {
  AXElements list{{}, elements.size()};
  for (const Scripted& child : elements) {
    list.first.push_back(handleOf(child));
  }
  return element({{children, list}});
}

/// A tree of `levels` below its root, every node with `width` children.
Scripted regularTree(int levels, std::size_t width) {
  return levels == 0 ? element()
                     : parent(std::vector<Scripted>(width, regularTree(levels - 1, width)));
}

class AXTest : public testing::Test {
 protected:
  static constexpr pid_t pid = 77;

  AXTest() { show(element()); }
  void TearDown() override {
    scriptedAccessibility() = {};
    scriptedStatus() = {};
  }

  static void show(const Scripted& root) {
    scriptedAccessibility().applications[pid] = root;
    scriptedStatus().frontmost = pid;
  }
  /// The reply to an operation, given the rest of the request.
  Json ask(const std::string& op, const std::string& members = "") {
    return host_.ask(R"({"op":")" + op + "\"" + members + "}");
  }
  Json dump(const std::string& members = "") { return ask("ax_dump", members); }
  /// The node of an element that is the whole tree.
  Json nodeOf(const Scripted& only) {
    show(only);
    Json node = dump()["tree"];
    node.erase("ref");
    return node;
  }
  /// An operation on the one element of a fresh dump.
  Json act(const std::string& op, const std::string& members = "") {
    return ask(op, R"(,"ref":)" + dump()["tree"]["ref"].dump() + members);
  }

  HandlerConnection connection_;
  test::Peer& host_ = connection_.host;
};

TEST_F(AXTest, NodesSayWhatIsOutOfTheOrdinary) {
  const Scripted button = element({{role, "AXButton"},
                                   {subrole, ""},
                                   {title, "Save"},
                                   {value, AXNumber(0.5)},
                                   {enabled, AXNumber(0)},
                                   {focused, AXNumber(1)},
                                   {position, Platform::Point{10.5, -0.5}},
                                   {size, Platform::Size{99.5, 20.4}}});
  button->actionNames = {"AXPress", "AXShowMenu"};
  EXPECT_EQ(nodeOf(button), Json::parse(R"({"role":"AXButton","subrole":"","title":"Save",
      "value":"0.5","enabled":false,"focused":true,"frame":{"x":11,"y":-1,"w":100,"h":20},
      "actions":["AXPress","AXShowMenu"]})"));
  EXPECT_EQ(nodeOf(element({{role, ""},
                            {title, ""},
                            {enabled, AXNumber(1)},
                            {focused, AXNumber(0)},
                            {children, AXElements{}}})),
            Json::parse(R"({"role":""})"));
  // What has an unexpected type is left out, and half a frame is none.
  EXPECT_EQ(nodeOf(element({{role, AXNumber(1)},
                            {enabled, "false"},
                            {position, Platform::Point{1, 2}},
                            {size, Platform::Point{3, 4}},
                            {children, "none"}})),
            Json::object());
}

TEST_F(AXTest, ValuesBecomeShortText) {
  const auto times = [](int n, const std::string& text) {
    std::string all;
    while (n-- > 0) {
      all += text;
    }
    return all;
  };
  const std::string family = "👨‍👩‍👧";  // one character of five code points
  const std::pair<AXValue, Json> cases[] = {
      {"", nullptr},
      {AXNumber(50.0), "50"},
      {AXNumber(1.0 / 3), "0.3333333333333333"},
      {AXNumber(0.1 + 0.2), "0.3"},
      {AXNumber(0.1F), "0.1"},
      {AXNumber(100000.0), "100000"},
      {AXNumber(-1e300), "-1e+300"},
      {AXNumber(0.00001), "1e-05"},
      {Platform::AXURL{"https://example.org/a"}, "https://example.org/a"},
      {Platform::Point{1, 2}, nullptr},
      {Platform::AXOther{}, nullptr},
      {times(250, "e\u0301"), times(250, "e\u0301")},
      {times(251, "é"), times(250, "é") + "…"},
      {times(300, family), times(250, family) + "…"},
      {times(250, "\r\n") + "x", times(250, "\r\n") + "…"},
      {times(251, "🇩🇪"), times(250, "🇩🇪") + "…"}};
  for (const auto& [given, shown] : cases) {
    EXPECT_EQ(nodeOf(element({{value, given}})),
              shown.is_null() ? Json::object() : Json({{"value", shown}}));
  }
}

TEST_F(AXTest, DepthIsClampedAndItsCutNotMarked) {
  show(regularTree(30, 1));
  for (const auto& [members, depth] :
       {std::pair("", 12), std::pair(R"(,"maxDepth":3)", 3), std::pair(R"(,"maxDepth":0)", 1),
        std::pair(R"(,"maxDepth":-9223372036854775808)", 1), std::pair(R"(,"maxDepth":100)", 25),
        std::pair(R"(,"maxDepth":"3")", 12), std::pair(R"(,"maxDepth":2.5)", 12)}) {
    const Json reply = dump(members);
    EXPECT_EQ(countNodes(reply["tree"]), 1 + depth) << members;
    EXPECT_EQ(reply.dump().find("childrenOmitted"), std::string::npos);
    EXPECT_FALSE(reply.contains("truncated"));
  }
}

TEST_F(AXTest, LongListsOfChildrenAreCutAndMarked) {
  show(regularTree(1, 60));
  Json tree = dump()["tree"];
  EXPECT_EQ(tree["children"].size(), 48U);
  EXPECT_EQ(tree["childrenOmitted"], 12);
  // A reader may know of children that it does not hand out.
  tree = nodeOf(element({{children, AXElements{{handleOf(element())}, 5000}}}));
  EXPECT_EQ(tree["children"].size(), 1U);
  EXPECT_EQ(tree["childrenOmitted"], 4999);
}

TEST_F(AXTest, TheBudgetCutsFromTheRight) {
  show(regularTree(3, 40));
  const Json reply = dump();
  EXPECT_EQ(countNodes(reply["tree"]), 800);
  EXPECT_EQ(reply["truncated"], true);
  // The root, its first child, 19 whole grandchildren of 41 nodes each, and 19 nodes of the next.
  const Json& child = reply["tree"]["children"][0];
  EXPECT_EQ(reply["tree"]["childrenOmitted"], 39);
  EXPECT_EQ(child["childrenOmitted"], 20);
  EXPECT_FALSE(child["children"][18].contains("childrenOmitted"));
  const Json& last = child["children"][19];
  EXPECT_EQ(countNodes(last), 19);
  EXPECT_EQ(last["childrenOmitted"], 22);
  // Refs number the nodes in the order of the walk, and go on with the next dump.
  EXPECT_EQ(reply["tree"]["ref"], "e1");
  EXPECT_EQ(child["ref"], "e2");
  EXPECT_EQ(last["children"].back()["ref"], "e800");
  EXPECT_EQ(dump()["tree"]["ref"], "e801");
  // Exactly the budget counts as truncated: 1 + 17 * 47 = 800.
  std::vector<Scripted> groups(17, regularTree(1, 46));
  show(parent(groups));
  const Json full = dump();
  EXPECT_EQ(full["truncated"], true);
  EXPECT_EQ(full.dump().find("childrenOmitted"), std::string::npos);
  // Nobody looks at the children of the last node.
  std::vector<Scripted> leaves(45, element());
  leaves.push_back(regularTree(1, 1));
  groups.back() = parent(leaves);
  show(parent(groups));
  EXPECT_EQ(dump().dump().find("childrenOmitted"), std::string::npos);
  groups.back() = regularTree(1, 45);
  show(parent(groups));
  EXPECT_FALSE(dump().contains("truncated"));
}

TEST_F(AXTest, DumpsTheNamedOrTheFrontmostApplication) {
  scriptedStatus().names = {{pid, "Editor"}};
  scriptedAccessibility().applications[-5] = element({{role, "AXApplication"}});
  EXPECT_EQ(dump()["app"], "Editor");
  EXPECT_EQ(dump(R"(,"pid":"12")")["app"], "Editor");
  EXPECT_EQ(dump(R"(,"pid":-5)")["tree"]["role"], "AXApplication");
  EXPECT_EQ(dump(R"(,"pid":12)"), Json::parse(R"({"ok":true,"tree":{"ref":"e4"},"app":"pid 12"})"));
}

TEST_F(AXTest, RefsAndElementsLiveUntilTheNextDumpOfTheirConnection) {
  auto child = element();
  const std::weak_ptr<test::ScriptedElement> held = child;
  show(parent({std::move(child)}));
  dump();
  show(element());
  EXPECT_FALSE(held.expired());
  dump();
  EXPECT_TRUE(held.expired());

  // A dump that gets nowhere, or is refused, leaves the refs alone.
  scriptedStatus().frontmost.reset();
  EXPECT_EQ(dump(), failure("no frontmost application to dump"));
  scriptedStatus().accessibility = false;
  EXPECT_FALSE(dump().value("ok", true));
  scriptedStatus().accessibility = true;
  EXPECT_EQ(ask("ax_focus", R"(,"ref":"e3")"), ok);
}

TEST_F(AXTest, HitTestGivesOneNodeWithoutChildren) {
  const Scripted hit = parent({element()});
  hit->attributes[role] = "AXGroup";
  scriptedAccessibility().atPosition = handleOf(hit);
  EXPECT_EQ(ask("ax_element_at", R"(,"x":-10,"y":20.0)"),
            Json::parse(R"({"ok":true,"node":{"ref":"e1","role":"AXGroup"}})"));
  EXPECT_EQ(scriptedAccessibility().askedAt.x, -10);
  EXPECT_EQ(scriptedAccessibility().askedAt.y, 20);
  const std::pair<AXError, std::string> cases[] = {
      {AXError::success, "success"},
      {AXError::noValue, "no value"},
      {AXError::failure, "AXError -25200"},
  };
  for (const auto& [error, described] : cases) {
    scriptedAccessibility().atPosition = error;
    EXPECT_EQ(ask("ax_element_at", R"(,"x":100,"y":200)"),
              failure("no accessible element at (100, 200) (" + described + ")"));
  }
}

TEST_F(AXTest, OperationsDoWhatTheySayAndTellFailuresApart) {
  const Scripted target = element();
  show(target);
  const std::string newValue = R"(,"value":"a b")";
  for (const char* action : {"", R"(,"action":"")", R"(,"action":7)", R"(,"action":"any name")"}) {
    EXPECT_EQ(act("ax_action", action), ok);
  }
  EXPECT_EQ(act("ax_set_value", R"(,"value":"")"), ok);
  EXPECT_EQ(act("ax_set_value", newValue), ok);
  EXPECT_EQ(act("ax_focus"), ok);
  EXPECT_EQ(target->done, (std::vector<std::string>{"AXPress", "AXPress", "AXPress", "any name",
                                                    "value=", "value=a b", "focus"}));

  target->result = AXError::cannotComplete;
  EXPECT_EQ(act("ax_action"), Json::parse(R"({"ok":true,"note":
      "the app did not confirm within the AX timeout — the action possibly succeeded; re-dump to verify"})"));
  const std::string late = " failed (kAXErrorCannotComplete — the app did not respond in time)";
  EXPECT_EQ(act("ax_set_value", newValue), failure("setting AXValue" + late));
  EXPECT_EQ(act("ax_focus"), failure("focusing" + late));
  target->result = AXError::invalidUIElement;
  for (const auto& reply : {act("ax_action"), act("ax_set_value", newValue), act("ax_focus")}) {
    EXPECT_EQ(reply.value("error", "").substr(0, 13), "element ref \"") << reply;
  }
  target->result = AXError::actionUnsupported;
  EXPECT_EQ(act("ax_action", R"(,"action":"AXRaise")"),
            failure("AXRaise failed (action unsupported)"));
  target->settable = false;
  EXPECT_EQ(
      act("ax_set_value", newValue),
      failure("this element's AXValue is not settable — focus it (ax_focus) and type instead"));
}

TEST(AXDeathTest, WhatMustNotBeAnsweredIsFatal) {
  const auto dumpOnce = [](const std::string& members) {
    HandlerConnection connection;
    connection.host.ask(R"({"op":"ax_dump")" + members + "}");
  };
  EXPECT_DEATH(dumpOnce(R"(,"pid":2147483648)"), "fatal error: the process identifier");
  EXPECT_DEATH(dumpOnce(R"(,"pid":-2147483649)"), "fatal error: the process identifier");
  scriptedAccessibility().applications[1] =
      element({{position, Platform::Point{1e300, 0}}, {size, Platform::Size{1, 1}}});
  EXPECT_DEATH(dumpOnce(R"(,"pid":1)"), "fatal error: a coordinate");
  scriptedAccessibility() = {};
}

}  // namespace
}  // namespace tervain
