#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

#include "Platform/Linux/X11/Session.h"
#include "Support/AgentProcess.h"

namespace tervain::test {

/// What an agent needs of the environment to be on this test's desktop.
std::map<std::string, std::string> desktopEnvironment();

/// An agent on this test's desktop and a connection to it.
class DesktopTest : public testing::Test {
 protected:
  /// Asks for an operation, by default on the test's own connection.
  static Json perform(Peer& host, const std::string& op, Json fields = Json::object());
  Json perform(const std::string& op, Json fields = Json::object()) {
    return perform(host_, op, std::move(fields));
  }

  AgentProcess agent_{{.environment = desktopEnvironment()}};
  Peer host_ = agent_.connect();
};

/// The first node of a tree with this role and this text as its title or value, and with this
/// member, if named. Null if there is none; an empty text stands for any.
Json findNode(const Json& tree, const std::string& role, const std::string& text = "",
              const std::string& member = "");

/// A node in an application's tree as soon as there is such a one. Null when that takes too long.
Json awaitNode(Peer& host, const Program& application, const std::string& role,
               const std::string& text = "", const std::string& member = "");

/// Looks at the desktop with the eyes of the X server alone.
class Witness {
 public:
  Witness();
  ~Witness();
  Witness(const Witness&) = delete;
  Witness& operator=(const Witness&) = delete;

  /// An event of the window that `watchInput` shows: its key symbol or button and its modifiers.
  struct Seen {
    enum Kind { keyDown, keyUp, buttonDown, buttonUp } kind;
    xcb_keysym_t what;
    unsigned modifiers;
    bool operator==(const Seen&) const = default;
  };

  /// Shows a window over all else that has the focus and notes what reaches it.
  void watchInput();

  /// The next `count` events of that window, or fewer when they don't come.
  std::vector<Seen> seen(std::size_t count);

  std::pair<int, int> pointer();

  /// Every key's symbols, as the X server has them now.
  std::vector<xcb_keysym_t> keyboardMap();

  /// Locks modifiers and a layout.
  void lock(std::uint8_t modifiers, std::uint8_t group);

  /// The locked modifiers and layout.
  std::pair<int, int> locks();

  /// Waits until a window of a process is active.
  void awaitActive(pid_t pid);

  /// The process of the active window; 0 without one.
  pid_t activeProcess();

 private:
  std::uint32_t cardinal(xcb_window_t window, const char* property);

  Linux::X11::Session x11_;
  xcb_window_t window_;
};

}  // namespace tervain::test
