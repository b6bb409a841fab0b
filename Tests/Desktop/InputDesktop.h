#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Linux/X11.h"
#include "VMAgentCore/UniqueFD.h"

namespace tervain::test {

/// What makes a program use this desktop.
std::map<std::string, std::string> desktopEnvironment();

/// A program on the desktop. It is ended, and waited for, with this object.
class Program {
 public:
  explicit Program(const std::vector<std::string>& command);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  [[nodiscard]] pid_t pid() const { return pid_; }

  /// The first line that the program prints.
  [[nodiscard]] std::string readLine() const;

  /// Waits for the program's own end and gives what it printed. Nothing when it doesn't end.
  std::optional<std::string> output();

 private:
  UniqueFD out_;
  pid_t pid_;
};

/// Looks at the desktop with the eyes of the X server alone.
class Witness {
 public:
  Witness();
  ~Witness();
  Witness(const Witness&) = delete;
  Witness& operator=(const Witness&) = delete;

  /// An event of the window that `watchInput` made: its key symbol or button and its modifiers.
  struct Seen {
    enum Kind { keyDown, keyUp, buttonDown, buttonUp } kind;
    xcb_keysym_t what;
    unsigned modifiers;
    bool operator==(const Seen&) const = default;
  };

  /// Opens a window over all else that has the focus and notes what reaches it.
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

  struct Window {
    int x, y, width, height;
  };

  /// Waits until a window of a process is active, and tells where it is.
  Window awaitActive(pid_t pid);

  /// The clipboard's text as its owner gives it now.
  std::string clipboard();

 private:
  bool hasFocus(xcb_window_t window);
  std::uint32_t cardinal(xcb_window_t window, const char* property);

  X11::Session x11_;
  xcb_window_t window_;
};

}  // namespace tervain::test
