// The accessibility operations, driven over a connection against a scripted interface.

#include <gtest/gtest.h>

#include "ScriptedPlatform/ScriptedAccessibility.h"
#include "ScriptedPlatform/ScriptedStatus.h"
#include "ScriptedPlatform/ScriptedWorkspace.h"
#include "Support/HandlerConnection.h"

namespace tervain {
namespace {

using Platform::AXAttribute;
using Platform::AXElement;
using Platform::AXElements;
using Platform::AXError;
using Platform::AXNumber;
using Platform::AXValue;
using test::handleOf;
using test::HandlerConnection;
using test::scriptedAccessibility;
using test::ScriptedElement;
using Scripted = std::shared_ptr<ScriptedElement>;

constexpr const char* notGranted =
    "Accessibility (kTCCServiceAccessibility) is not granted to the agent — re-run provisioning";

Scripted element(std::map<AXAttribute, AXValue> attributes = {}) {
  auto made = std::make_shared<ScriptedElement>();
  made->attributes = std::move(attributes);
  return made;
}

Scripted parent(const std::vector<Scripted>& children) {
  AXElements list{{}, children.size()};
  for (const Scripted& child : children) {
    list.first.push_back(handleOf(child));
  }
  return element({{AXAttribute::children, list}});
}

/// A tree of `levels` below its root, every node with `width` children.
Scripted regularTree(int levels, int width) {
  if (levels == 0) {
    return element();
  }
  std::vector<Scripted> children;
  for (int i = 0; i < width; ++i) {
    children.push_back(regularTree(levels - 1, width));
  }
  return parent(children);
}

int countNodes(const Json& node) {
  int count = 1;
  for (const Json& child : node.value("children", Json::array())) {
    count += countNodes(child);
  }
  return count;
}

int depthOf(const Json& node) {
  int depth = 0;
  for (const Json& child : node.value("children", Json::array())) {
    depth = std::max(depth, 1 + depthOf(child));
  }
  return depth;
}

void collectRefs(const Json& node, std::vector<std::string>& refs) {
  refs.push_back(node["ref"]);
  for (const Json& child : node.value("children", Json::array())) {
    collectRefs(child, refs);
  }
}

Json failure(const std::string& error) {
  return {{"ok", false}, {"error", error}};
}

Json stale(const std::string& ref) {
  return failure("element ref \"" + ref +
                 "\" is unknown or stale — refs are only valid until the next ax_dump; re-dump and "
                 "retry");
}

class AXTest : public testing::Test {
 protected:
  static constexpr pid_t pid = 77;

  AXTest() { show(element()); }
  void TearDown() override {
    scriptedAccessibility() = {};
    test::scriptedWorkspace() = {};
    test::scriptedStatus() = {};
  }

  static void show(const Scripted& root) {
    scriptedAccessibility().applications[pid] = root;
    test::scriptedWorkspace().frontmost = pid;
  }
  Json dump(const std::string& options = "") {
    return host_.ask(R"({"op":"ax_dump")" + options + "}");
  }
  /// The node of an element that is the whole tree.
  Json nodeOf(const Scripted& only) {
    show(only);
    Json node = dump()["tree"];
    node.erase("ref");
    return node;
  }
  /// An operation on the one element of a fresh dump.
  Json ask(const std::string& op, const std::string& more = "") {
    const std::string ref = dump()["tree"]["ref"];
    return host_.ask(R"({"op":")" + op + R"(","ref":")" + ref + "\"" + more + "}");
  }

  HandlerConnection connection_;
  test::Peer& host_ = connection_.host;
};

TEST_F(AXTest, NodesSayWhatIsOutOfTheOrdinary) {
  const Scripted button = element({{AXAttribute::role, "AXButton"},
                                   {AXAttribute::subrole, ""},
                                   {AXAttribute::title, "Save"},
                                   {AXAttribute::value, AXNumber(0.5)},
                                   {AXAttribute::enabled, AXNumber(0)},
                                   {AXAttribute::focused, AXNumber(1)},
                                   {AXAttribute::position, Platform::Point{10.5, -0.5}},
                                   {AXAttribute::size, Platform::Size{99.5, 20.4}}});
  button->actionNames = {"AXPress", "AXShowMenu"};
  EXPECT_EQ(nodeOf(button), Json::parse(R"({"role":"AXButton","subrole":"","title":"Save",
      "value":"0.5","enabled":false,"focused":true,"frame":{"x":11,"y":-1,"w":100,"h":20},
      "actions":["AXPress","AXShowMenu"]})"));
  EXPECT_EQ(nodeOf(element({{AXAttribute::role, ""},
                            {AXAttribute::title, ""},
                            {AXAttribute::enabled, AXNumber(1)},
                            {AXAttribute::focused, AXNumber(0)},
                            {AXAttribute::children, AXElements{}}})),
            Json::parse(R"({"role":""})"));
  // What has an unexpected type is left out, and half a frame is none.
  EXPECT_EQ(nodeOf(element({{AXAttribute::role, AXNumber(1)},
                            {AXAttribute::enabled, "false"},
                            {AXAttribute::position, Platform::Point{1, 2}},
                            {AXAttribute::size, Platform::Point{3, 4}},
                            {AXAttribute::children, "none"}})),
            Json::object());
}

TEST_F(AXTest, ValuesBecomeShortText) {
  const std::string family = "👨‍👩‍👧";  // one character of five code points
  const auto times = [](int n, const std::string& text) {
    std::string all;
    for (int i = 0; i < n; ++i) {
      all += text;
    }
    return all;
  };
  const struct {
    AXValue value;
    Json shown;
  } cases[] = {
      {"text", "text"},
      {"", nullptr},
      {AXNumber(3), "3"},
      {AXNumber(50.0), "50"},
      {AXNumber(-0.1), "-0.1"},
      {AXNumber(1.0 / 3), "0.3333333333333333"},
      {Platform::AXURL{"https://example.org/a"}, "https://example.org/a"},
      {Platform::Point{1, 2}, nullptr},
      {Platform::AXOther{}, nullptr},
      {times(250, "é"), times(250, "é")},
      {times(251, "é"), times(250, "é") + "…"},
      {times(250, "e\u0301"), times(250, "e\u0301")},
      {times(300, family), times(250, family) + "…"},
      {times(250, "\r\n") + "x", times(250, "\r\n") + "…"},
      {times(251, "🇩🇪"), times(250, "🇩🇪") + "…"},
  };
  for (const auto& c : cases) {
    const Json expected = c.shown.is_null() ? Json::object() : Json{{"value", c.shown}};
    EXPECT_EQ(nodeOf(element({{AXAttribute::value, c.value}})), expected);
  }
}

TEST_F(AXTest, DepthIsClampedAndItsCutNotMarked) {
  const struct {
    const char* options;
    int depth;
  } cases[] = {{"", 12},
               {R"(,"maxDepth":3)", 3},
               {R"(,"maxDepth":0)", 1},
               {R"(,"maxDepth":-9223372036854775808)", 1},
               {R"(,"maxDepth":100)", 25},
               {R"(,"maxDepth":"3")", 12},
               {R"(,"maxDepth":2.5)", 12}};
  show(regularTree(30, 1));
  for (const auto& c : cases) {
    const Json reply = dump(c.options);
    EXPECT_EQ(depthOf(reply["tree"]), c.depth) << c.options;
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
  scriptedAccessibility().applications[pid]->attributes[AXAttribute::children] =
      AXElements{{handleOf(element())}, 5000};
  tree = dump()["tree"];
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
  EXPECT_EQ(child["children"].size(), 20U);
  EXPECT_EQ(child["childrenOmitted"], 20);
  EXPECT_FALSE(child["children"][18].contains("childrenOmitted"));
  EXPECT_EQ(child["children"][19]["childrenOmitted"], 22);
  // The node that takes the last of it does not even look at its children.
  EXPECT_EQ(countNodes(child["children"][19]), 19);
  std::vector<std::string> refs;
  collectRefs(reply["tree"], refs);
  EXPECT_EQ(refs.front(), "e1");
  EXPECT_EQ(refs[1], "e2");
  EXPECT_EQ(refs.back(), "e800");
  EXPECT_EQ(dump()["tree"]["ref"], "e801");
}

TEST_F(AXTest, ExactlyTheBudgetCountsAsTruncated) {
  std::vector<Scripted> groups(17, regularTree(1, 46));  // 1 + 17 * 47 = 800
  show(parent(groups));
  const Json full = dump();
  EXPECT_EQ(full["truncated"], true);
  EXPECT_EQ(full.dump().find("childrenOmitted"), std::string::npos);
  groups.back() = regularTree(1, 45);
  show(parent(groups));
  EXPECT_FALSE(dump().contains("truncated"));
}

TEST_F(AXTest, DumpsTheNamedOrTheFrontmostApplication) {
  test::scriptedWorkspace().names = {{pid, "Editor"}};
  scriptedAccessibility().applications[-5] = element({{AXAttribute::role, "AXApplication"}});
  EXPECT_EQ(dump()["app"], "Editor");
  EXPECT_EQ(dump(R"(,"pid":"12")")["app"], "Editor");
  EXPECT_EQ(dump(R"(,"pid":-5)")["tree"]["role"], "AXApplication");
  EXPECT_EQ(dump(R"(,"pid":12)"), Json::parse(R"({"ok":true,"tree":{"ref":"e4"},"app":"pid 12"})"));
}

TEST_F(AXTest, RefsLiveUntilTheNextDumpOfTheirConnection) {
  HandlerConnection other;
  EXPECT_EQ(dump()["tree"]["ref"], "e1");
  scriptedAccessibility().atPosition = handleOf(element());
  EXPECT_EQ(host_.ask(R"({"op":"ax_element_at","x":1,"y":2})")["node"]["ref"], "e2");
  EXPECT_EQ(host_.ask(R"({"op":"ax_element_at","x":1,"y":2})")["node"]["ref"], "e3");
  const auto focus = [](test::Peer& host, const std::string& ref) {
    return host.ask(R"({"op":"ax_focus","ref":)" + ref + "}");
  };
  const Json ok{{"ok", true}};
  for (const char* ref : {R"("e1")", R"("e2")", R"("e3")"}) {
    EXPECT_EQ(focus(host_, ref), ok);
    EXPECT_NE(focus(other.host, ref), ok);
  }
  for (const char* ref : {"e01", "E1", "e4", "", "e"}) {
    EXPECT_EQ(focus(host_, Json(ref).dump()), stale(ref));
  }
  EXPECT_EQ(focus(host_, "5"), stale("?"));
  EXPECT_EQ(host_.ask(R"({"op":"ax_action"})"), stale("?"));
  // A dump that gets nowhere leaves the refs alone.
  test::scriptedWorkspace().frontmost.reset();
  EXPECT_EQ(dump(), failure("no frontmost application to dump"));
  test::scriptedStatus().accessibility = false;
  EXPECT_EQ(dump(), failure(notGranted));
  test::scriptedStatus().accessibility = true;
  EXPECT_EQ(focus(host_, R"("e3")"), ok);
  EXPECT_EQ(dump(R"(,"pid":1)")["tree"]["ref"], "e4");
  EXPECT_EQ(focus(host_, R"("e3")"), stale("e3"));
}

TEST_F(AXTest, ElementsAreReleasedWithTheirRefs) {
  auto child = element();
  const std::weak_ptr<ScriptedElement> held = child;
  show(parent({std::move(child)}));
  dump();
  show(element());
  EXPECT_FALSE(held.expired());
  dump();
  EXPECT_TRUE(held.expired());
}

TEST_F(AXTest, HitTestGivesOneNodeWithoutChildren) {
  const Scripted hit = parent({element()});
  hit->attributes[AXAttribute::role] = "AXGroup";
  scriptedAccessibility().atPosition = handleOf(hit);
  EXPECT_EQ(host_.ask(R"({"op":"ax_element_at","x":-10,"y":20.0})"),
            Json::parse(R"({"ok":true,"node":{"ref":"e1","role":"AXGroup"}})"));
  EXPECT_EQ(scriptedAccessibility().askedAt.x, -10);
  EXPECT_EQ(scriptedAccessibility().askedAt.y, 20);
  const struct {
    AXError error;
    const char* described;
  } cases[] = {
      {AXError::success, "success"},
      {AXError::noValue, "no value"},
      {AXError::failure, "AXError -25200"},
      {AXError::invalidUIElement, "kAXErrorInvalidUIElement — stale element"},
      {AXError::cannotComplete, "kAXErrorCannotComplete — the app did not respond in time"},
      {AXError::attributeUnsupported, "attribute unsupported"},
      {AXError::actionUnsupported, "action unsupported"},
      {AXError::notImplemented, "the app does not implement this AX request"},
      {AXError::apiDisabled, "kAXErrorAPIDisabled — accessibility is disabled for this app"},
  };
  for (const auto& c : cases) {
    scriptedAccessibility().atPosition = c.error;
    EXPECT_EQ(host_.ask(R"({"op":"ax_element_at","x":100,"y":200})"),
              failure(std::string("no accessible element at (100, 200) (") + c.described + ")"));
  }
  for (const char* point : {R"("x":10.5,"y":20)", R"("x":1)", R"("y":1)", R"("x":"1","y":2)"}) {
    EXPECT_EQ(host_.ask(std::string(R"({"op":"ax_element_at",)") + point + "}"),
              failure("ax_element_at requires x and y"));
  }
}

TEST_F(AXTest, OperationsDoWhatTheySay) {
  const Scripted field = element();
  show(field);
  const Json ok{{"ok", true}};
  for (const char* action :
       {"", R"(,"action":"")", R"(,"action":7)", R"(,"action":"any name at all")"}) {
    EXPECT_EQ(ask("ax_action", action), ok);
  }
  EXPECT_EQ(ask("ax_set_value", R"(,"value":"")"), ok);
  EXPECT_EQ(ask("ax_set_value", R"(,"value":"a b")"), ok);
  EXPECT_EQ(ask("ax_set_value", R"(,"value":42)"),
            failure("ax_set_value requires a string \"value\""));
  EXPECT_EQ(host_.ask(R"({"op":"ax_set_value","value":42})"), stale("?"));
  EXPECT_EQ(ask("ax_focus"), ok);
  EXPECT_EQ(field->done,
            (std::vector<std::string>{"AXPress", "AXPress", "AXPress", "any name at all",
                                      "value=", "value=a b", "focus"}));
}

TEST_F(AXTest, OperationsTellFailuresApart) {
  const Scripted target = element();
  show(target);
  const std::string value = R"(,"value":"v")";
  target->result = AXError::cannotComplete;
  EXPECT_EQ(ask("ax_action"), Json::parse(R"({"ok":true,"note":
      "the app did not confirm within the AX timeout — the action possibly succeeded; re-dump to verify"})"));
  const std::string late = " failed (kAXErrorCannotComplete — the app did not respond in time)";
  EXPECT_EQ(ask("ax_set_value", value), failure("setting AXValue" + late));
  EXPECT_EQ(ask("ax_focus"), failure("focusing" + late));
  target->result = AXError::invalidUIElement;
  for (const auto& reply : {ask("ax_action"), ask("ax_set_value", value), ask("ax_focus")}) {
    EXPECT_EQ(reply.value("error", "").substr(0, 13), "element ref \"") << reply;
  }
  target->result = AXError::actionUnsupported;
  EXPECT_EQ(ask("ax_action", R"(,"action":"AXRaise")"),
            failure("AXRaise failed (action unsupported)"));
  target->result = AXError::attributeUnsupported;
  EXPECT_EQ(ask("ax_focus"), failure("focusing failed (attribute unsupported)"));
  target->settable = false;
  EXPECT_EQ(
      ask("ax_set_value", value),
      failure("this element's AXValue is not settable — focus it (ax_focus) and type instead"));
}

TEST_F(AXTest, NothingIsDoneWithoutTheGrant) {
  const Scripted target = element();
  show(target);
  const std::string ref = dump()["tree"]["ref"];
  test::scriptedStatus().accessibility = false;
  for (const char* op : {"ax_dump", "ax_element_at", "ax_action", "ax_set_value", "ax_focus"}) {
    EXPECT_EQ(host_.ask(R"({"op":")" + std::string(op) + R"(","ref":")" + ref + "\"}"),
              failure(notGranted));
    EXPECT_EQ(host_.ask(R"({"op":")" + std::string(op) + "\"}"), failure(notGranted));
  }
  EXPECT_TRUE(target->done.empty());
}

void dumpOnce(const std::string& options) {
  HandlerConnection connection;
  connection.host.ask(R"({"op":"ax_dump",)" + options + "}");
}

TEST(AXDeathTest, WhatMustNotBeAnsweredIsFatal) {
  EXPECT_DEATH(dumpOnce(R"("pid":2147483648)"), "fatal error: the process identifier");
  EXPECT_DEATH(dumpOnce(R"("pid":-2147483649)"), "fatal error: the process identifier");
  scriptedAccessibility().applications[1] =
      element({{AXAttribute::position, Platform::Point{1e300, 0}},
               {AXAttribute::size, Platform::Size{1, 1}}});
  EXPECT_DEATH(dumpOnce(R"("pid":1)"), "fatal error: a coordinate");
  scriptedAccessibility() = {};
}

}  // namespace
}  // namespace tervain
