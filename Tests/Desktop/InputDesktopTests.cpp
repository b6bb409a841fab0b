#include <X11/keysym.h>

#include <csignal>
#include <cstdlib>
#include <future>

#include "Desktop/Desktop.h"
#include "Support/Words.h"

namespace tervain::test {
namespace {

namespace X11 = Linux::X11;
using Seen = Witness::Seen;

constexpr unsigned shift = XCB_MOD_MASK_SHIFT;
constexpr unsigned capsLock = XCB_MOD_MASK_LOCK;
constexpr unsigned control = XCB_MOD_MASK_CONTROL;
constexpr unsigned alt = XCB_MOD_MASK_1;
constexpr unsigned super = XCB_MOD_MASK_4;

class InputDesktopTest : public DesktopTest {
 protected:
  void TearDown() override {
    witness_.lock(0, 0);
    useLayout("us");
  }

  static void useLayout(const std::string& layout) {
    EXPECT_EQ(runToEnd({"/usr/bin/setxkbmap", layout}, desktopEnvironment()).status, 0);
  }

  /// Asks the agent for an operation that must succeed.
  void act(const std::string& op, const Json& fields) {
    EXPECT_EQ(perform(op, fields), (Json{{"ok", true}})) << op << fields;
  }
  void press(const std::string& chord) { act("key", {{"chord", chord}}); }
  void type(const std::string& text) { act("type", {{"text", text}}); }

  Witness witness_;
};

TEST_F(InputDesktopTest, MovesThePointerPressesButtonsAndTurnsTheWheel) {
  witness_.watchInput();
  act("move", {{"x", 1e9}, {"y", -1e9}});
  EXPECT_EQ(witness_.pointer(), std::pair(1919, 0));
  act("move", {{"x", 7.9}, {"y", 8}});
  EXPECT_EQ(witness_.pointer(), std::pair(7, 8));
  const Json there{{"x", 50}, {"y", 60}};
  const struct {
    const char* op;
    Json fields;
    unsigned button;
    int count;
  } cases[] = {{"click", there, 1, 1},
               {"click", {{"x", 50}, {"y", 60}, {"button", "middle"}, {"count", 2}}, 2, 2},
               {"click", {{"x", 50}, {"y", 60}, {"button", "right"}}, 3, 1},
               {"scroll", {{"dy", 3}}, 4, 3},
               {"scroll", {{"dy", -40}}, 5, 40},
               {"scroll", {{"dx", 1}}, 6, 1},
               {"scroll", {{"dx", -2}}, 7, 2},
               {"drag", {{"fromX", 10}, {"fromY", 20}, {"toX", 300}, {"toY", 400}}, 1, 1}};
  for (const auto& c : cases) {
    act(c.op, c.fields);
    std::vector<Seen> expected;
    for (int i = 0; i < c.count; ++i) {
      expected.push_back({Seen::buttonDown, c.button, 0});
      expected.push_back({Seen::buttonUp, c.button, 0});
    }
    EXPECT_EQ(witness_.seen(expected.size()), expected) << c.op << c.fields;
  }
  EXPECT_EQ(witness_.pointer(), std::pair(300, 400));
}

/// Shows a popup all over the screen.
void popUp(X11::Session& x11) {
  const std::uint32_t values[] = {1, XCB_EVENT_MASK_ENTER_WINDOW};
  const xcb_window_t popup = xcb_generate_id(x11.get());
  xcb_create_window(x11.get(), XCB_COPY_FROM_PARENT, popup, x11.screen().root, 0, 0, 1900, 1080, 0,
                    XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                    XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values);
  xcb_map_window(x11.get(), popup);
  ASSERT_TRUE(x11.roundTrip());
}

TEST_F(InputDesktopTest, EntersAMenuThatAPressOpens) {
  witness_.watchInput();
  auto x11 = X11::Session::open(after(patience));
  const auto clicked = std::async(std::launch::async, [this] {
    act("click", {{"x", 50}, {"y", 60}, {"button", "right"}});
  });
  EXPECT_EQ(witness_.seen(1), (std::vector<Seen>{{Seen::buttonDown, 3, 0}}));
  popUp(*x11);
  bool entered = false;
  while (const auto event = entered ? nullptr : x11->awaitEvent(after(patience))) {
    entered =
        (event->response_type & 0x7F) == XCB_ENTER_NOTIFY &&
        reinterpret_cast<const xcb_enter_notify_event_t&>(*event).mode == XCB_NOTIFY_MODE_NORMAL;
  }
  EXPECT_TRUE(entered);
  clicked.wait();
  EXPECT_EQ(witness_.pointer(), std::pair(50, 60));
}

std::vector<std::pair<std::string, xcb_keysym_t>> namedKeys() {
  constexpr xcb_keysym_t symbols[] = {XK_Return,    XK_Tab,  XK_space, XK_BackSpace, XK_Escape,
                                      XK_Home,      XK_End,  XK_Up,    XK_Page_Up,   XK_Left,
                                      XK_Page_Down, XK_Down, XK_Right, XK_Delete};
  const auto names = words(
      "return tab space delete esc home end up pageup left pagedown down right forwarddelete");
  std::vector<std::pair<std::string, xcb_keysym_t>> keys;
  for (std::size_t i = 0; i < names.size(); ++i) {
    keys.emplace_back(names[i], symbols[i]);
  }
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
    for (const auto& [name, symbol] : namedKeys()) {
      press(name);
      const auto seen = witness_.seen(2);
      ASSERT_EQ(seen.size(), 2U) << name;
      EXPECT_EQ(seen[0], (Seen{Seen::keyDown, symbol, 0})) << name << " on " << layout;
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

class TypingTest : public InputDesktopTest,
                   public testing::WithParamInterface<std::vector<std::string>> {};

INSTANTIATE_TEST_SUITE_P(Toolkits, TypingTest,
                         testing::Values(std::vector<std::string>{"mousepad", "--disable-server"},
                                         std::vector<std::string>{"gtk4-demo", "--run=textundo"},
                                         std::vector<std::string>{"featherpad", "--standalone"}));

TEST_P(TypingTest, TypesEveryScriptOnEveryLayout) {
  const Program editor(GetParam());
  witness_.awaitActive(editor.pid());
  const struct {
    const char* layout;
    std::uint8_t modifiers;
    std::uint8_t group;
  } keyboards[] = {{"us", 0, 0}, {"de", 0, 0}, {"ru", 0, 0}, {"us", capsLock, 0}, {"us,ru", 0, 1}};
  for (const auto& keyboard : keyboards) {
    useLayout(keyboard.layout);
    witness_.lock(keyboard.modifiers, keyboard.group);
    const auto before = witness_.keyboardMap();
    for (const std::string round : {"10001", "10002"}) {
      // The emoji after fifteen units is split between two events.
      const std::string text =
          round +
          " Grüße, м😀👍🏽 ÜBER Ünïcödé\nça €uro 漢字 日本語 → "
          "שלום\n{x@y} ende";
      press("ctrl+a");
      type(text);
      EXPECT_TRUE(awaitNode(host_, editor, "AXTextArea", text).is_object())
          << keyboard.layout << awaitNode(host_, editor, "AXTextArea");
    }
    EXPECT_EQ(witness_.locks(), (std::pair<int, int>(keyboard.modifiers, keyboard.group)));
    EXPECT_TRUE(eventually([&] { return witness_.keyboardMap() == before; }));
  }
  editor.signal(SIGKILL);  // told to end, it may ask whether to save
}

TEST_F(InputDesktopTest, TypesFromManyConnectionsAtOnce) {
  const Program editor({"mousepad", "--disable-server"});
  witness_.awaitActive(editor.pid());
  std::vector<std::future<void>> hosts;
  for (const char* text : {"äöüß", "ждёф", "漢字日本"}) {
    hosts.push_back(std::async(std::launch::async, [this, text] {
      Peer host = agent_.connect();
      for (int i = 0; i < 5; ++i) {
        perform(host, "type", {{"text", text}});
        perform(host, "key", {{"chord", "shift+end"}});
      }
    }));
  }
  hosts.clear();
  for (const std::string text : {"äöüß", "ждёф", "漢字日本"}) {
    std::string all;
    EXPECT_TRUE(eventually([&] {
      all = awaitNode(host_, editor, "AXTextArea").value("value", "");
      int whole = 0;
      for (auto at = all.find(text); at != std::string::npos; at = all.find(text, at + 1)) {
        ++whole;
      }
      return whole == 5;
    })) << text
        << " in " << all;
  }
}

TEST_F(InputDesktopTest, LeavesTheKeyboardMapAsItWas) {
  witness_.watchInput();
  const auto before = witness_.keyboardMap();
  for (const int end : {SIGTERM, SIGKILL}) {
    const AgentProcess other{{.environment = desktopEnvironment()}};
    Peer host = other.connect();
    // Half a second after it was used the keyboard is given back, unless the agent is stopped.
    EXPECT_TRUE(eventually([&] {
      kill(other.pid(), SIGCONT);
      perform(host, "type", {{"text", "漢字"}});
      kill(other.pid(), SIGSTOP);
      return witness_.keyboardMap() != before;
    }));
    kill(other.pid(), end);
    kill(other.pid(), SIGCONT);
    EXPECT_TRUE(eventually([&] { return !isRunning(other.pid()); }));
    EXPECT_EQ(witness_.keyboardMap() == before, end == SIGTERM) << "told to end, it tidies up";
  }
  type("日本");
  EXPECT_TRUE(eventually([&] { return witness_.keyboardMap() == before; }))
      << "the next agent tidies up after one that was killed";
}

}  // namespace
}  // namespace tervain::test
