#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "Platform/Linux/X11/Session.h"

/// The windows of the desktop as the X server and the window manager know them. The server gives
/// the number of a window that is gone to a new one, so keep none of this for a later request.
namespace tervain::Linux::X11 {

struct Rectangle {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;

  [[nodiscard]] bool contains(int px, int py) const {
    return px >= x && py >= y && px < x + width && py < y + height;
  }
};

/// A window of an application.
struct Window {
  xcb_window_t id = XCB_WINDOW_NONE;
  pid_t pid = 0;
  Rectangle place;        ///< on the screen
  bool isManaged = true;  ///< by the window manager; menus are not
  std::string title;
  /// The shadow around what the application draws as its window: left, right, top, bottom, each
  /// of 16 bits as the sizes of windows are.
  struct Shadow {
    int left;
    int right;
    int top;
    int bottom;
  };
  std::optional<Shadow> shadow;
};

/// The process that owns a window.
std::optional<pid_t> processOf(Session& x11, xcb_window_t window);

/// Whether there is a window manager.
bool isManaged(Session& x11);

/// The window that has the keyboard; XCB_WINDOW_NONE without one.
xcb_window_t activeWindow(Session& x11);

/// The process whose window has the keyboard.
std::optional<pid_t> activeProcess(Session& x11);

/// A process's windows that the window manager manages, the topmost last.
std::vector<Window> windowsOf(Session& x11, pid_t pid);

/// A process's windows that are open without the window manager, as menus are.
std::vector<Window> popupsOf(Session& x11, pid_t pid);

/// The window at a point of the screen that belongs to an application rather than to the window
/// manager; menus are windows as well.
std::optional<Window> windowAt(Session& x11, int x, int y);

/// Asks the window manager to raise a window and to give it the keyboard.
void activate(Session& x11, xcb_window_t window);

}  // namespace tervain::Linux::X11
