#include "Platform/Linux/Input/FocusedWindow.h"

#include <algorithm>
#include <atomic>

#include "Platform/Linux/X11/Properties.h"

namespace tervain::Linux::X11 {
namespace {

/// How many windows may lie between the one with the focus and the top. Toolkits nest a few.
constexpr int maxDepth = 16;

/// Lets what is sent to the root window reach us too, for as long as it lives. GTK sends answers to
/// whoever watches the windows in it, as window managers ask for; Qt to whoever watches the root
/// window itself.
class RootEvents {
 public:
  explicit RootEvents(Session& x11) : x11_(x11) {
    select(XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_STRUCTURE_NOTIFY);
  }
  RootEvents(const RootEvents&) = delete;
  RootEvents& operator=(const RootEvents&) = delete;
  ~RootEvents() { select(XCB_EVENT_MASK_NO_EVENT); }

 private:
  void select(std::uint32_t mask) {
    xcb_change_window_attributes(x11_.get(), x11_.screen().root, XCB_CW_EVENT_MASK, &mask);
  }

  Session& x11_;
};

}  // namespace

FocusedWindow::FocusedWindow(Session& x11) : x11_(x11) {
  const auto found = atoms(x11, {"WM_PROTOCOLS", "_NET_WM_PING"});
  protocols_ = found[0];
  ping_ = found[1];
  const auto focus = x11.await(xcb_get_input_focus(x11.get()));
  xcb_window_t window = focus ? focus->focus : xcb_window_t{XCB_NONE};
  for (int depth = 0; depth < maxDepth && window != x11.screen().root; ++depth) {
    // These two values say "nothing" and "whatever is under the pointer".
    if (window == XCB_INPUT_FOCUS_NONE || window == XCB_INPUT_FOCUS_POINTER_ROOT) {
      return;
    }
    if (takesPings(window)) {
      window_ = window;
      return;
    }
    const auto tree = x11.await(xcb_query_tree(x11.get(), window));
    window = tree ? tree->parent : xcb_window_t{XCB_NONE};
  }
}

bool FocusedWindow::catchesUp(std::chrono::milliseconds limit) {
  static std::atomic<std::uint32_t> lastStamp;
  if (window_ == XCB_NONE) {
    return false;
  }
  const RootEvents events(x11_);
  const std::uint32_t stamp = ++lastStamp;
  ask(stamp);
  const Deadline deadline = after(limit);
  while (const auto event = x11_.awaitEvent(deadline)) {
    if (isAnswer(*event, stamp)) {
      return true;
    }
  }
  return false;
}

bool FocusedWindow::takesPings(xcb_window_t window) {
  const auto protocols = numbers(x11_, window, protocols_);
  return std::find(protocols.begin(), protocols.end(), ping_) != protocols.end();
}

void FocusedWindow::ask(std::uint32_t stamp) {
  xcb_client_message_event_t message{};
  message.response_type = XCB_CLIENT_MESSAGE;
  message.format = 32;
  message.window = window_;
  message.type = protocols_;
  message.data.data32[0] = ping_;
  message.data.data32[1] = stamp;
  message.data.data32[2] = window_;
  xcb_send_event(x11_.get(), /*propagate=*/0, window_, XCB_EVENT_MASK_NO_EVENT,
                 reinterpret_cast<const char*>(&message));
}

bool FocusedWindow::isAnswer(const xcb_generic_event_t& event, std::uint32_t stamp) const {
  constexpr std::uint8_t type = 0x7F;  // without the bit that says that a client sent it
  if ((event.response_type & type) != XCB_CLIENT_MESSAGE) {
    return false;
  }
  const auto& message = reinterpret_cast<const xcb_client_message_event_t&>(event);
  return message.type == protocols_ && message.data.data32[0] == ping_ &&
         message.data.data32[1] == stamp && message.data.data32[2] == window_;
}

}  // namespace tervain::Linux::X11
