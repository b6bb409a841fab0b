#include <X11/keysym.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "Desktop/InputDesktop.h"
#include "Support/AgentProcess.h"

namespace tervain::test {
namespace {

using Seen = Witness::Seen;

constexpr unsigned shift = XCB_MOD_MASK_SHIFT;
constexpr unsigned capsLock = XCB_MOD_MASK_LOCK;
constexpr unsigned control = XCB_MOD_MASK_CONTROL;
constexpr unsigned alt = XCB_MOD_MASK_1;
constexpr unsigned super = XCB_MOD_MASK_4;

/// How often each text is typed; many rounds are for measuring by hand.
int rounds() {
  const char* value = std::getenv("TERVAIN_TYPING_ROUNDS");
  return value ? std::atoi(value) : 2;
}

class InputDesktopTest : public testing::Test {
 protected:
  void TearDown() override {
    witness_.lock(0, 0);
    useLayout("us");
  }

  static void useLayout(const std::string& layout) {
    EXPECT_EQ(runToEnd({"/usr/bin/setxkbmap", layout}, desktopEnvironment()).status, 0);
  }

  /// Asks the agent for an operation that must succeed.
  void act(const Json& request) {
    EXPECT_EQ(host_.ask(request.dump()), (Json{{"ok", true}})) << request;
  }
  void press(const std::string& chord) { act({{"op", "key"}, {"chord", chord}}); }
  void type(const std::string& text) { act({{"op", "type"}, {"text", text}}); }

  /// Whether a text view holds this text in the end; what it holds otherwise.
  std::string content(const std::string& expected) {
    std::string text;
    eventually(
        [&] {
          press("ctrl+a");
          press("ctrl+c");
          text = witness_.clipboard();
          return text == expected;
        },
        std::chrono::seconds(3));
    return text;
  }

  AgentProcess agent_{{.environment = desktopEnvironment(), .prefix = {}}};
  Peer host_ = agent_.connect();
  Witness witness_;
};

TEST_F(InputDesktopTest, MovesThePointerBeforeItAnswers) {
  const struct {
    double x, y;
    std::pair<int, int> there;
  } cases[] = {{100, 200, {100, 200}}, {0, 0, {0, 0}}, {1e9, -1e9, {1919, 0}}, {7.9, 8, {7, 8}}};
  for (const auto& c : cases) {
    act({{"op", "move"}, {"x", c.x}, {"y", c.y}});
    EXPECT_EQ(witness_.pointer(), c.there);
  }
}

TEST_F(InputDesktopTest, PressesButtonsAndTurnsTheWheel) {
  witness_.watchInput();
  const auto taps = [this](unsigned button, unsigned state, int count) {
    std::vector<Seen> expected;
    for (int i = 0; i < count; ++i) {
      expected.push_back({Seen::buttonDown, button, 0});
      expected.push_back({Seen::buttonUp, button, state});
    }
    EXPECT_EQ(witness_.seen(expected.size()), expected) << "button " << button;
  };
  act({{"op", "click"}, {"x", 50}, {"y", 60}});
  taps(1, 0, 1);
  act({{"op", "click"}, {"x", 50}, {"y", 60}, {"button", "middle"}, {"count", 2}});
  taps(2, 0, 2);
  act({{"op", "click"}, {"x", 50}, {"y", 60}, {"button", "right"}});
  taps(3, 0, 1);
  for (const auto& [key, lines, button] : {std::tuple("dy", 3, 4), std::tuple("dy", -40, 5),
                                           std::tuple("dx", 1, 6), std::tuple("dx", -2, 7)}) {
    act({{"op", "scroll"}, {key, lines}});
    taps(static_cast<unsigned>(button), 0, std::abs(lines));
  }
  act({{"op", "drag"}, {"fromX", 10}, {"fromY", 20}, {"toX", 300}, {"toY", 400}});
  taps(1, 0, 1);
  EXPECT_EQ(witness_.pointer(), std::pair(300, 400));
}

struct NamedKey {
  std::string name;
  xcb_keysym_t symbol;
};

std::vector<NamedKey> namedKeys() {
  std::vector<NamedKey> keys{{"return", XK_Return},
                             {"tab", XK_Tab},
                             {"space", XK_space},
                             {"delete", XK_BackSpace},
                             {"esc", XK_Escape},
                             {"home", XK_Home},
                             {"end", XK_End},
                             {"pageup", XK_Page_Up},
                             {"pagedown", XK_Page_Down},
                             {"forwarddelete", XK_Delete},
                             {"left", XK_Left},
                             {"right", XK_Right},
                             {"up", XK_Up},
                             {"down", XK_Down}};
  for (const char c : std::string("abcdefghijklmnopqrstuvwxyz0123456789=-][';\\,/.`")) {
    keys.push_back({{c}, static_cast<xcb_keysym_t>(c)});
  }
  for (unsigned n = 0; n < 15; ++n) {
    keys.push_back({"f" + std::to_string(n + 1), XK_F1 + n});
  }
  return keys;
}

TEST_F(InputDesktopTest, PressesEveryKeyOnEveryLayout) {
  witness_.watchInput();
  for (const char* layout : {"us", "de", "ru", "us,ru"}) {
    useLayout(layout);
    const auto before = witness_.keyboardMap();
    const std::pair locks(static_cast<int>(capsLock), layout == std::string("us,ru") ? 1 : 0);
    witness_.lock(capsLock, static_cast<std::uint8_t>(locks.second));
    for (const NamedKey& key : namedKeys()) {
      press(key.name);
      const auto seen = witness_.seen(2);
      ASSERT_EQ(seen.size(), 2U) << key.name;
      EXPECT_EQ(seen[0], (Seen{Seen::keyDown, key.symbol, 0})) << key.name << " on " << layout;
      EXPECT_EQ(seen[1].kind, Seen::keyUp);
    }
    EXPECT_EQ(witness_.locks(), locks);
    EXPECT_TRUE(eventually([&] { return witness_.keyboardMap() == before; }));
  }
}

TEST_F(InputDesktopTest, HoldsTheModifiersOfAChord) {
  witness_.watchInput();
  press("shift+alt+fn+ctrl+s");
  EXPECT_EQ(witness_.seen(8), (std::vector<Seen>{{Seen::keyDown, XK_Control_L, 0},
                                                 {Seen::keyDown, XK_Alt_L, control},
                                                 {Seen::keyDown, XK_Shift_L, control | alt},
                                                 {Seen::keyDown, XK_s, control | alt | shift},
                                                 {Seen::keyUp, XK_s, control | alt | shift},
                                                 {Seen::keyUp, XK_Shift_L, control | alt | shift},
                                                 {Seen::keyUp, XK_Alt_L, control | alt},
                                                 {Seen::keyUp, XK_Control_L, control}}));
  // The window manager keeps the Super key itself to itself.
  press("cmd+j");
  EXPECT_EQ(witness_.seen(1), (std::vector<Seen>{{Seen::keyDown, XK_j, super}}));
}

struct TextView {
  const char* name;
  std::vector<std::string> command;
};

class TypingTest : public InputDesktopTest, public testing::WithParamInterface<TextView> {};

INSTANTIATE_TEST_SUITE_P(Toolkits, TypingTest,
                         testing::Values(TextView{"Gtk3",
                                                  {"/usr/bin/mousepad", "--disable-server"}},
                                         TextView{"Gtk4", {"/usr/bin/gtk4-demo", "--run=textundo"}},
                                         TextView{"Qt5", {"/usr/bin/featherpad", "--standalone"}}),
                         [](const auto& view) { return view.param.name; });

TEST_P(TypingTest, TypesEveryScriptOnEveryLayout) {
  const Program editor(GetParam().command);
  witness_.awaitActive(editor.pid());
  const struct {
    const char* layout;
    std::uint8_t modifiers;
    std::uint8_t group;
  } keyboards[] = {{"us", 0, 0}, {"de", 0, 0}, {"ru", 0, 0}, {"us", capsLock, 0}, {"us,ru", 0, 1}};
  int right = 0;
  for (const auto& keyboard : keyboards) {
    useLayout(keyboard.layout);
    witness_.lock(keyboard.modifiers, keyboard.group);
    const auto before = witness_.keyboardMap();
    for (int round = 1; round <= rounds(); ++round) {
      // The emoji after fifteen units is split between two events.
      const std::string text =
          std::to_string(10'000 + round) +
          " Grüße, м😀👍🏽 ÜBER Ünïcödé\nça €uro 漢字 日本語 → "
          "שלום\n{x@y} "
          "ende";
      press("ctrl+a");
      type(text);
      const std::string arrived = content(text);
      EXPECT_EQ(arrived, text) << keyboard.layout;
      right += arrived == text ? 1 : 0;
    }
    EXPECT_EQ(witness_.locks(), (std::pair<int, int>(keyboard.modifiers, keyboard.group)));
    EXPECT_TRUE(eventually([&] { return witness_.keyboardMap() == before; }));
  }
  RecordProperty("right", right);
}

TEST_F(InputDesktopTest, TypesFromManyConnectionsAtOnce) {
  const Program editor({"/usr/bin/mousepad", "--disable-server"});
  witness_.awaitActive(editor.pid());
  std::vector<std::thread> hosts;
  for (const char* text : {"äöüß", "ждёф", "漢字日本"}) {
    hosts.emplace_back([this, text] {
      Peer host = agent_.connect();
      for (int i = 0; i < 5; ++i) {
        host.ask(Json{{"op", "type"}, {"text", text}}.dump());
        host.ask(R"({"op":"key","chord":"shift+end"})");
      }
    });
  }
  for (std::thread& host : hosts) {
    host.join();
  }
  const std::string all = content("");
  for (const char* text : {"äöüß", "ждёф", "漢字日本"}) {
    int whole = 0;
    for (auto at = all.find(text); at != std::string::npos; at = all.find(text, at + 1)) {
      ++whole;
    }
    EXPECT_EQ(whole, 5) << text << " in " << all;
  }
}

TEST_F(InputDesktopTest, WorksEditorsWithThePointer) {
  const Program editor({"/usr/bin/mousepad", "--disable-server"});
  const auto window = witness_.awaitActive(editor.pid());
  std::string lines;
  for (int i = 100; i < 200; ++i) {
    lines += "line" + std::to_string(i) + (i < 199 ? "\n" : "");
  }
  type(lines);
  EXPECT_EQ(content(lines), lines);
  const int x = window.x + 30;
  const int y = window.y + window.height / 2;
  const auto wordThere = [&] {
    act({{"op", "click"}, {"x", x}, {"y", y}, {"count", 2}});
    press("ctrl+c");
    return witness_.clipboard();
  };
  // What the editor does with a click, it does when it gets round to it: so ask again until the
  // word changes to what it must be, from all that was selected before.
  act({{"op", "move"}, {"x", x}, {"y", y}});
  act({{"op", "scroll"}, {"dy", 40}});
  std::string top;
  EXPECT_TRUE(eventually([&] { return (top = wordThere()).size() == 7; })) << top;
  std::string below;
  EXPECT_TRUE(eventually([&] {
    act({{"op", "scroll"}, {"dy", -5}});
    below = wordThere();
    return below.size() == 7 && below > top;
  })) << "a negative amount goes down, but here from "
      << top << " to " << below;
  EXPECT_LT(top, "line150");
}

TEST_F(InputDesktopTest, WorksDialogsWithThePointer) {
  Program question(
      {"/usr/bin/zenity", "--question", "--text=?", "--ok-label=Yes", "--extra-button=Other"});
  auto window = witness_.awaitActive(question.pid());
  act({{"op", "click"}, {"x", window.x + window.width / 6}, {"y", window.y + window.height - 20}});
  EXPECT_EQ(question.output(), "Other\n");
  Program scale({"/usr/bin/zenity", "--scale", "--text=?", "--value=0"});
  window = witness_.awaitActive(scale.pid());
  const int y = window.y + window.height / 2 + 5;
  act({{"op", "drag"},
       {"fromX", window.x + 20},
       {"fromY", y},
       {"toX", window.x + window.width},
       {"toY", y}});
  press("enter");
  EXPECT_EQ(scale.output(), "100\n");
}

TEST_F(InputDesktopTest, LeavesTheKeyboardMapAsItWas) {
  witness_.watchInput();
  const auto before = witness_.keyboardMap();
  {
    const AgentProcess other{{.environment = desktopEnvironment(), .prefix = {}}};
    other.connect().ask(R"({"op":"type","text":"漢字"})");
    EXPECT_NE(witness_.keyboardMap(), before);
  }
  EXPECT_EQ(witness_.keyboardMap(), before) << "an agent that is told to end tidies up first";
  {
    const AgentProcess other{{.environment = desktopEnvironment(), .prefix = {}}};
    other.connect().ask(R"({"op":"type","text":"漢字"})");
    kill(other.pid(), SIGKILL);
  }
  EXPECT_NE(witness_.keyboardMap(), before);
  type("日本");
  EXPECT_TRUE(eventually([&] { return witness_.keyboardMap() == before; }))
      << "the next agent tidies up after one that was killed";
}

TEST_F(InputDesktopTest, OutlivesItsServer) {
  // An X server of the test's own, which takes its display number again when it comes back.
  Program first({"/usr/bin/Xvfb", "-displayfd", "1", "-nolisten", "tcp", "-noreset"});
  const std::string number = first.readLine();
  auto environment = desktopEnvironment();
  environment["DISPLAY"] = ":" + number;
  const AgentProcess agent{{.environment = environment, .prefix = {}}};
  Peer host = agent.connect();
  host.ask(R"({"op":"ping"})");
  const auto threads = agent.footprint().threads;
  const auto typesOn = [&host] {
    return host.ask(R"({"op":"type","text":"漢字"})").value("ok", false);
  };
  const auto borrowed = [&number] {
    Program xprop(
        {"/usr/bin/xprop", "-display", ":" + number, "-root", "_TERVAIN_BORROWED_KEYCODES"});
    return xprop.output().value_or("").find(std::to_string(0x01006F22)) != std::string::npos;
  };
  EXPECT_TRUE(typesOn());
  EXPECT_TRUE(borrowed());
  kill(first.pid(), SIGKILL);
  first.output();
  EXPECT_FALSE(typesOn()) << "without a server there is no leave to type";
  const Program second({"/usr/bin/Xvfb", ":" + number, "-nolisten", "tcp", "-noreset"});
  EXPECT_TRUE(eventually(typesOn)) << "it types on the server that came back";
  EXPECT_TRUE(borrowed());
  EXPECT_TRUE(eventually([&] { return !borrowed(); }));
  EXPECT_TRUE(eventually([&] { return agent.footprint().threads == threads; }));
}

}  // namespace
}  // namespace tervain::test
