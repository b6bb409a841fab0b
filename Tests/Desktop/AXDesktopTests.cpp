// The accessibility operations against real applications: what they do, not what they reply.

#include <csignal>
#include <future>
#include <utility>

#include "Desktop/Desktop.h"

namespace tervain::test {
namespace {

const Json ok{{"ok", true}};
const std::string qtExamples = "/usr/lib/x86_64-linux-gnu/qt5/examples/widgets/widgets/";

class AXDesktopTest : public DesktopTest {
 protected:
  /// Performs an operation about a node.
  Json act(const std::string& op, const Json& node, Json fields = Json::object()) {
    fields["ref"] = node.value("ref", "none");
    return perform(op, std::move(fields));
  }

  Json await(const Program& application, const std::string& role, const std::string& text = "",
             const std::string& member = "") {
    return awaitNode(host_, application, role, text, member);
  }

  bool shows(const Program& application, const std::string& role, const std::string& text,
             const std::string& member = "") {
    return await(application, role, text, member).is_object();
  }

  /// What lies at the middle of a node.
  Json hitMiddle(const Json& node) {
    const Json frame = node.value("frame", Json{{"x", -1}, {"y", -1}, {"w", 0}, {"h", 0}});
    return perform("ax_element_at", {{"x", frame["x"].get<int>() + frame["w"].get<int>() / 2},
                                     {"y", frame["y"].get<int>() + frame["h"].get<int>() / 2}})
        .value("node", Json::object());
  }
};

TEST_F(AXDesktopTest, FieldsAreReadHitWrittenAndFocused) {
  const struct {
    std::vector<std::string> command;
    std::string app;
    bool focuses;
  } cases[] = {{{"gtk3-widget-factory"}, "gtk3-widget-factory", true},
               {{"gtk4-widget-factory"}, "gtk4-widget-factory", false},
               {{qtExamples + "lineedits/lineedits"}, "lineedits", true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.app);
    const Program application(c.command);
    EXPECT_TRUE(eventually([&] { return perform("ax_dump").value("app", "") == c.app; }));
    Json field;
    Json hit;
    EXPECT_TRUE(eventually([&] {  // once it has come to rest
      field = await(application, "AXTextField");
      hit = hitMiddle(field);
      return hit["frame"] == field["frame"];
    }));
    const std::string text = "Grüße, €uro 😀";
    EXPECT_EQ(act("ax_set_value", hit, {{"value", text}}), ok);
    field = await(application, "AXTextField", text);
    ASSERT_TRUE(field.is_object());
    if (c.focuses) {
      EXPECT_EQ(act("ax_focus", field), ok);
      EXPECT_TRUE(shows(application, "AXTextField", text, "focused"));
    } else {
      EXPECT_EQ(act("ax_focus", field)["error"], "focusing failed (attribute unsupported)");
    }
  }
}

/// What the nodes of a tree are that have no children, and where.
std::vector<Json> leavesOf(const Json& tree) {
  if (!tree.contains("children")) {
    return {{{"role", tree["role"]}, {"frame", tree["frame"]}}};
  }
  std::vector<Json> leaves;
  for (const Json& child : tree["children"]) {
    const auto more = leavesOf(child);
    leaves.insert(leaves.end(), more.begin(), more.end());
  }
  return leaves;
}

TEST_F(AXDesktopTest, EveryLeafOfATreeIsFoundAtItsMiddle) {
  // Headers, scroll bars over a list, pages beside their tabs, and cells that are scrolled away.
  const std::vector<std::string> commands[] = {
      {"gtk3-widget-factory"}, {qtExamples + "../itemviews/spreadsheet/spreadsheet"}};
  for (const auto& command : commands) {
    SCOPED_TRACE(command.front());
    const Program application(command);
    ASSERT_TRUE(await(application, "AXTable").is_object());
    std::vector<Json> leaves;
    EXPECT_TRUE(eventually([&] {  // until it has come to rest
      const Json dump = perform("ax_dump", {{"pid", application.pid()}, {"maxDepth", 25}});
      const auto before = std::exchange(leaves, leavesOf(dump["tree"]));
      return leaves.size() > 50 && leaves == before;
    }));
    for (const Json& leaf : leaves) {
      const Json hit = hitMiddle(leaf);
      EXPECT_TRUE(hit["role"] == leaf["role"] && hit["frame"] == leaf["frame"])
          << leaf << " is hit as " << hit;
    }
  }
}

TEST_F(AXDesktopTest, ALongListShowsWhereItIsScrolledTo) {
  std::vector<std::string> command{"zenity", "--list", "--column=A"};
  for (int row = 0; row < 400; ++row) {
    command.push_back("row " + std::to_string(row));
  }
  Program zenity(command);
  const Json frame = await(zenity, "AXCell", "row 0")["frame"];
  perform("move", {{"x", frame["x"]}, {"y", frame["y"]}});
  EXPECT_TRUE(eventually([&] {
    perform("scroll", {{"dy", -40}});
    return findNode(perform("ax_dump", {{"pid", zenity.pid()}})["tree"], "AXCell", "row 399")
        .is_object();
  }));
  EXPECT_EQ(act("ax_action", await(zenity, "AXRow")), ok);  // which its first cell does
  EXPECT_EQ(zenity.waitForEnd(), 0);
}

TEST_F(AXDesktopTest, ControlsReactAsTheirUserSees) {
  const std::string commands[] = {"gtk3-widget-factory", "gtk4-widget-factory",
                                  qtExamples + "styles/styles"};
  for (const std::string& command : commands) {
    SCOPED_TRACE(command);
    const Program application({command});
    EXPECT_EQ(
        act("ax_action", await(application, "AXIncrementor", "50"), {{"action", "AXIncrement"}}),
        ok);
    EXPECT_TRUE(shows(application, "AXIncrementor", "51"));
  }
  const Program factory({"gtk3-widget-factory"});
  EXPECT_EQ(act("ax_set_value", await(factory, "AXSlider"), {{"value", "12.5"}}), ok);
  EXPECT_TRUE(shows(factory, "AXSlider", "12.5"));
  EXPECT_EQ(act("ax_set_value", await(factory, "AXSlider"), {{"value", "loud"}})["ok"], false);
  const Json slider = await(factory, "AXSlider", "12.5")["frame"];
  const int left = slider["x"];
  const int width = slider["w"];
  const int y = slider["y"].get<int>() + slider["h"].get<int>() / 2;
  perform("drag", {{"fromX", left + width / 8}, {"fromY", y}, {"toX", left + width}, {"toY", y}});
  EXPECT_TRUE(shows(factory, "AXSlider", "100"));
  // A click opens the list of a box, as long as the pointer rests until the release.
  const Json box = await(factory, "AXPopUpButton", "Left")["frame"];
  perform("click", {{"x", box["x"].get<int>() + 20}, {"y", box["y"].get<int>() + 10}});
  EXPECT_TRUE(shows(factory, "AXMenuItem", "Middle"));
  perform("key", {{"chord", "escape"}});
  // What is greyed out does nothing, and says so.
  const Json grey = await(factory, "AXCheckBox", "", "enabled");
  EXPECT_EQ(grey.value("enabled", true), false);
  EXPECT_EQ(act("ax_action", grey)["error"], "AXPress failed (action unsupported)");
}

TEST_F(AXDesktopTest, PressedButtonsDoTheirWork) {
  const Program calculator({qtExamples + "calculator/calculator"});
  for (const char* key : {"7", "+", "5", "="}) {
    EXPECT_EQ(act("ax_action", await(calculator, "AXButton", key)), ok);
  }
  EXPECT_TRUE(shows(calculator, "AXTextField", "12"));

  Program zenity({"zenity", "--entry", "--title=Question", "--entry-text=abc"});
  EXPECT_TRUE(shows(zenity, "AXWindow", "Question"));
  const Json button = await(zenity, "AXButton", "OK");
  EXPECT_EQ(act("ax_action", button), ok);
  EXPECT_EQ(zenity.waitForEnd(), 0);
  EXPECT_EQ(zenity.output(), "abc\n");
  EXPECT_EQ(act("ax_action", button)["error"].get<std::string>().substr(0, 13), "element ref \"");
}

TEST_F(AXDesktopTest, AnOpenMenuLiesAboveItsWindow) {
  const Program editor({"mousepad"});
  const Json menu = await(editor, "AXMenuBarItem", "File");
  EXPECT_EQ(act("ax_action", menu), ok);
  EXPECT_TRUE(eventually(
      [&] { return hitMiddle(await(editor, "AXMenuItem", "Save")).value("title", "") == "Save"; }));
}

TEST_F(AXDesktopTest, AStoppedApplicationHoldsNobodyUpForLong) {
  const Program stopped({"zenity", "--entry", "--entry-text=stopped"});
  const Program other({"zenity", "--entry", "--entry-text=other"});
  Peer second = agent_.connect();
  Peer third = agent_.connect();
  const Json field = await(stopped, "AXTextField", "stopped");
  ASSERT_TRUE(awaitNode(second, other, "AXTextField", "other").is_object());
  stopped.signal(SIGSTOP);
  const auto started = Clock::now();
  auto dumped = std::async(std::launch::async, [&] {
    return perform(second, "ax_dump", {{"pid", stopped.pid()}});
  });
  EXPECT_TRUE(awaitNode(third, other, "AXTextField", "other").is_object());
  EXPECT_EQ(dumped.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
  EXPECT_EQ(dumped.get()["ok"], true);
  EXPECT_LT(Clock::now() - started, std::chrono::seconds(8));  // and not ten, or thousands
  // A ref taken before works after the rest, on a connection that has not dumped since.
  EXPECT_EQ(act("ax_focus", field)["error"],
            "focusing failed (kAXErrorCannotComplete — the app did not respond in time)");
  EXPECT_TRUE(act("ax_action", field).contains("note"));
  stopped.signal(SIGCONT);
  EXPECT_EQ(act("ax_set_value", field, {{"value", "awake"}}), ok);
  EXPECT_TRUE(shows(stopped, "AXTextField", "awake"));
}

}  // namespace
}  // namespace tervain::test
