#include "Platform/Linux/FocusedWindow.h"

#include <algorithm>
#include <atomic>

namespace tervain::X11 {
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

FocusedWindow::FocusedWindow(Session& x11)
    : x11_(x11), protocols_(x11.atom("WM_PROTOCOLS")), ping_(x11.atom("_NET_WM_PING")) {
  const auto focus =
      x11.await<xcb_get_input_focus_reply_t>(xcb_get_input_focus(x11.get()).sequence);
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
    const auto tree = x11.await<xcb_query_tree_reply_t>(xcb_query_tree(x11.get(), window).sequence);
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
  const auto deadline = Clock::now() + limit;
  while (const auto event = x11_.awaitEvent(deadline)) {
    if (isAnswer(*event, stamp)) {
      return true;
    }
  }
  return false;
}

bool FocusedWindow::takesPings(xcb_window_t window) {
  constexpr std::uint32_t most = 64;
  const auto reply = x11_.await<xcb_get_property_reply_t>(
      xcb_get_property(x11_.get(), /*_delete=*/0, window, protocols_, XCB_ATOM_ATOM, 0, most)
          .sequence);
  if (!reply || reply->format != 32) {
    return false;
  }
  const auto* const atoms = static_cast<const xcb_atom_t*>(xcb_get_property_value(reply.get()));
  const auto* const end = atoms + reply->value_len;
  return std::find(atoms, end, ping_) != end;
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

}  // namespace tervain::X11
