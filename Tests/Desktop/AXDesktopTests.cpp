// The accessibility operations against real applications: what they do, not what they reply.

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>

#include "Desktop/Application.h"
#include "Support/AgentProcess.h"

namespace tervain {
namespace {

using test::act;
using test::Application;
using test::dumpWith;
using test::eventually;
using test::findNode;
using test::hitMiddle;
using test::nodesOf;

const Json ok{{"ok", true}};
const std::string qtExamples = "/usr/lib/x86_64-linux-gnu/qt5/examples/widgets/";

class AXDesktopTest : public testing::Test {
 protected:
  /// The text that the application's first node of this role shows, once it is the expected one.
  bool shows(const Application& application, const std::string& role, const std::string& text) {
    return dumpWith(host_, application, role, text).is_object();
  }

  test::AgentProcess agent_{{.environment = test::desktopEnvironment(), .prefix = {}}};
  test::Peer host_ = agent_.connect();
};

TEST_F(AXDesktopTest, Gtk3EntryIsReadHitWrittenAndConfirmed) {
  Application zenity({"zenity", "--entry", "--title=Question", "--text=Name?", "--entry-text=abc"});
  const Json tree = dumpWith(host_, zenity, "AXTextField", "abc");
  const Json* entry = findNode(tree, "AXTextField");
  ASSERT_TRUE(entry) << tree;
  EXPECT_TRUE(findNode(tree, "AXStaticText", "Name?"));
  EXPECT_EQ(findNode(tree, "AXWindow")->value("title", ""), "Question");
  EXPECT_EQ(tree["role"], "AXApplication");
  EXPECT_TRUE(
      eventually([&] { return host_.ask(R"({"op":"ax_dump"})").value("app", "") == "zenity"; }));

  const Json fresh = dumpWith(host_, zenity, "AXTextField", "abc");
  const Json& field = *findNode(fresh, "AXTextField");
  const Json hit = hitMiddle(host_, field)["node"];
  EXPECT_EQ(hit["frame"], field["frame"]) << hit;
  EXPECT_EQ(hit["role"], "AXTextField");

  const std::string text = "Grüße, €uro 😀";
  EXPECT_EQ(act(host_, "ax_set_value", hit, {{"value", text}}), ok);
  EXPECT_TRUE(shows(zenity, "AXTextField", text));
  const Json again = dumpWith(host_, zenity, "AXButton", "OK");
  const Json button = *findNode(again, "AXButton", "OK");
  EXPECT_EQ(act(host_, "ax_action", button), ok);
  EXPECT_EQ(zenity.waitForEnd(), 0);
  EXPECT_EQ(zenity.output(), text + "\n");

  EXPECT_EQ(act(host_, "ax_action", button)["error"].get<std::string>().substr(0, 13),
            "element ref \"");
  EXPECT_EQ(act(host_, "ax_set_value", button, {{"value", ""}})["error"],
            "this element's AXValue is not settable — focus it (ax_focus) and type instead");
}

TEST_F(AXDesktopTest, Gtk3FocusMovesToTheNamedElement) {
  Application zenity({"zenity", "--forms", "--add-entry=First", "--add-entry=Second"});
  Json tree;
  const auto fields = [&] {
    tree = dumpWith(host_, zenity, "AXButton", "OK");
    std::vector<const Json*> found = nodesOf(tree);
    std::erase_if(found, [](const Json* node) { return node->value("role", "") != "AXTextField"; });
    return found;
  };
  for (const std::size_t i : {1U, 0U, 1U}) {
    const auto before = fields();
    ASSERT_EQ(before.size(), 2U) << tree;
    EXPECT_EQ(act(host_, "ax_focus", *before[i]), ok);
    EXPECT_TRUE(eventually([&] {
      const auto after = fields();
      return after.size() == 2 && after[i]->value("focused", false) &&
             !after[1 - i]->value("focused", false);
    })) << tree;
  }
  EXPECT_EQ(act(host_, "ax_focus", *findNode(tree, "AXStaticText"))["error"],
            "focusing failed (attribute unsupported)");
}

TEST_F(AXDesktopTest, Gtk3ControlsReactAsTheirUserSees) {
  Application factory({"gtk3-widget-factory"});
  Json tree = dumpWith(host_, factory, "AXIncrementor", "50");
  EXPECT_EQ(
      act(host_, "ax_action", *findNode(tree, "AXIncrementor", "50"), {{"action", "AXIncrement"}}),
      ok);
  EXPECT_TRUE(shows(factory, "AXIncrementor", "51"));
  tree = dumpWith(host_, factory, "AXSlider");
  EXPECT_EQ(act(host_, "ax_set_value", *findNode(tree, "AXSlider"), {{"value", "12.5"}}), ok);
  EXPECT_TRUE(shows(factory, "AXSlider", "12.5"));
  EXPECT_EQ(act(host_, "ax_set_value", *findNode(tree, "AXSlider"), {{"value", "loud"}})["ok"],
            false);

  // Pressed it comes alive; what is greyed out does nothing, and says so.
  tree = dumpWith(host_, factory, "AXRadioButton", "page 2");
  EXPECT_EQ(act(host_, "ax_action", *findNode(tree, "AXRadioButton", "page 2")), ok);
  EXPECT_TRUE(eventually([&] {
    tree = dumpWith(host_, factory, "AXRadioButton", "page 2");
    return findNode(tree, "AXRadioButton", "page 2")->value("value", "") == "1";
  }));
  const auto nodes = nodesOf(tree);
  const auto found = std::find_if(nodes.begin(), nodes.end(), [](const Json* node) {
    return node->value("role", "") == "AXCheckBox" && !node->value("enabled", true);
  });
  ASSERT_NE(found, nodes.end());
  const Json* grey = *found;
  EXPECT_EQ(act(host_, "ax_action", *grey)["error"], "AXPress failed (action unsupported)");
  EXPECT_EQ(act(host_, "ax_action", *grey, {{"action", "AXNonsense"}})["error"],
            "AXNonsense failed (action unsupported)");
}

TEST_F(AXDesktopTest, AnOpenMenuLiesAboveItsWindow) {
  Application editor({"mousepad"});
  Json tree = dumpWith(host_, editor, "AXMenuBarItem", "File");
  ASSERT_TRUE(tree.is_object());
  EXPECT_FALSE(findNode(tree, "AXMenuItem"));
  EXPECT_EQ(act(host_, "ax_action", *findNode(tree, "AXMenuBarItem", "File")), ok);
  tree = dumpWith(host_, editor, "AXMenuItem", "Save");
  ASSERT_TRUE(tree.is_object());
  const Json hit = hitMiddle(host_, *findNode(tree, "AXMenuItem", "Save"));
  EXPECT_EQ(hit["node"].value("title", ""), "Save") << hit;
}

TEST_F(AXDesktopTest, Qt5ButtonsFieldsAndFocus) {
  Application calculator({qtExamples + "widgets/calculator/calculator"});
  Json tree = dumpWith(host_, calculator, "AXButton", "7");
  for (const char* key : {"7", "+", "5", "="}) {
    const Json* button = findNode(tree, "AXButton", key);
    ASSERT_TRUE(button) << key << tree;
    EXPECT_EQ(act(host_, "ax_action", *button), ok);
  }
  EXPECT_TRUE(shows(calculator, "AXTextField", "12"));
  const Json* seven = findNode(tree, "AXButton", "7");
  const Json hit = hitMiddle(host_, *seven);
  EXPECT_EQ(hit["node"]["frame"], (*seven)["frame"]) << hit;

  Application edits({qtExamples + "widgets/lineedits/lineedits"});
  tree = dumpWith(host_, edits, "AXTextField", "Validator");
  const Json* field = findNode(tree, "AXTextField", "Validator");
  ASSERT_TRUE(field);
  EXPECT_EQ(act(host_, "ax_set_value", *field, {{"value", "äöü😀"}}), ok);
  EXPECT_EQ(act(host_, "ax_focus", *field), ok);
  EXPECT_TRUE(eventually([&] {
    tree = dumpWith(host_, edits, "AXTextField", "äöü😀");
    const Json* written = findNode(tree, "AXTextField", "äöü😀");
    return written && written->value("focused", false);
  }));
}

TEST_F(AXDesktopTest, Gtk4ElementsAreWhereTheyAreShown) {
  Application factory({"gtk4-widget-factory"});
  Json tree = dumpWith(host_, factory, "AXTextField", "comboboxentry");
  const Json* field = findNode(tree, "AXTextField", "comboboxentry");
  ASSERT_TRUE(field) << tree;
  EXPECT_TRUE(eventually(
      [&] { return host_.ask(R"({"op":"ax_dump"})").value("app", "") == "gtk4-widget-factory"; }));
  const Json hit = hitMiddle(host_, *field)["node"];
  EXPECT_EQ(hit["frame"], (*field)["frame"]) << hit;
  EXPECT_EQ(act(host_, "ax_set_value", hit, {{"value", "four"}}), ok);
  tree = dumpWith(host_, factory, "AXTextField", "four");
  ASSERT_TRUE(tree.is_object());
  EXPECT_EQ(
      act(host_, "ax_action", *findNode(tree, "AXIncrementor", "50"), {{"action", "AXIncrement"}}),
      ok);
  tree = dumpWith(host_, factory, "AXIncrementor", "51");
  ASSERT_TRUE(tree.is_object());
  EXPECT_EQ(act(host_, "ax_focus", *findNode(tree, "AXIncrementor", "51"))["error"],
            "focusing failed (attribute unsupported)");
}

TEST_F(AXDesktopTest, AKilledApplicationLeavesNothingBehind) {
  Application zenity({"zenity", "--entry"});
  const Json tree = dumpWith(host_, zenity, "AXButton", "OK");
  ASSERT_TRUE(tree.is_object());
  const auto before = agent_.footprint();
  zenity.signal(SIGKILL);
  zenity.waitForEnd();
  const std::string stale = "element ref \"";
  const Json& button = *findNode(tree, "AXButton", "OK");
  EXPECT_EQ(act(host_, "ax_action", button)["error"].get<std::string>().substr(0, 13), stale);
  EXPECT_EQ(act(host_, "ax_focus", button)["error"].get<std::string>().substr(0, 13), stale);
  const std::string pid = std::to_string(zenity.pid());
  const Json reply = host_.ask(R"({"op":"ax_dump","pid":)" + pid + "}");
  EXPECT_EQ(reply["app"], "pid " + pid);
  EXPECT_EQ(reply["tree"].size(), 1U) << reply;
  EXPECT_TRUE(agent_.footprint().within(before)) << testing::PrintToString(agent_.footprint());
}

TEST_F(AXDesktopTest, AStoppedApplicationHoldsNobodyUpForLong) {
  Application stopped({"zenity", "--entry", "--entry-text=stopped"});
  Application other({"zenity", "--entry", "--entry-text=other"});
  test::Peer second = agent_.connect();
  const Json tree = dumpWith(host_, stopped, "AXTextField", "stopped");
  ASSERT_TRUE(dumpWith(second, other, "AXTextField", "other").is_object());
  stopped.signal(SIGSTOP);
  const auto started = test::Clock::now();
  const std::string request = R"({"op":"ax_dump","pid":)" + std::to_string(stopped.pid()) + "}";
  EXPECT_EQ(host_.ask(request)["ok"], true);
  EXPECT_LT(test::Clock::now() - started, std::chrono::seconds(6));
  const auto meanwhile = test::Clock::now();
  ASSERT_TRUE(dumpWith(second, other, "AXTextField", "other").is_object());
  EXPECT_LT(test::Clock::now() - meanwhile, std::chrono::seconds(1));
  stopped.signal(SIGCONT);

  // A ref taken before works after the rest, on a connection that has not dumped since.
  Json before = dumpWith(second, stopped, "AXTextField", "stopped");
  stopped.signal(SIGSTOP);
  const Json& field = *findNode(before, "AXTextField");
  EXPECT_EQ(act(second, "ax_focus", field)["error"],
            "focusing failed (kAXErrorCannotComplete — the app did not respond in time)");
  EXPECT_TRUE(act(second, "ax_action", field).contains("note"));
  stopped.signal(SIGCONT);
  EXPECT_EQ(act(second, "ax_set_value", field, {{"value", "awake"}}), ok);
  EXPECT_TRUE(shows(stopped, "AXTextField", "awake"));
}

TEST_F(AXDesktopTest, ManyDumpsCostNoMemoryOrDescriptors) {
  Application factory({"gtk3-widget-factory"});
  ASSERT_TRUE(dumpWith(host_, factory, "AXSlider").is_object());
  const auto dumpOften = [&](int times) {
    for (int i = 0; i < times; ++i) {
      test::Peer host = agent_.connect();
      host.ask(R"({"op":"ax_dump"})");
      host.ask(R"({"op":"ax_element_at","x":100,"y":100})");
    }
    return agent_.residentBytes();
  };
  const std::size_t before = dumpOften(10);
  const auto footprint = agent_.footprint();
  const std::size_t after = dumpOften(30);
  EXPECT_TRUE(SANITIZED || after < before + 4'000'000) << after;
  EXPECT_TRUE(eventually([&] { return agent_.footprint().within(footprint); }));
}

TEST_F(AXDesktopTest, NowhereIsNoElement) {
  for (const char* point : {R"("x":-50,"y":-50)", R"("x":1000000000,"y":5)"}) {
    const Json reply = host_.ask(std::string(R"({"op":"ax_element_at",)") + point + "}");
    EXPECT_NE(reply["error"].get<std::string>().find("(no value)"), std::string::npos) << reply;
  }
}

}  // namespace
}  // namespace tervain
