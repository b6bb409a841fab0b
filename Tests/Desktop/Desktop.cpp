#include "Desktop/Desktop.h"

#include <xcb/xproto.h>

#include <cstdlib>

#include "Platform/Linux/X11/Properties.h"

namespace tervain::test {
namespace {

Linux::X11::Session openSession() {
  auto session = Linux::X11::Session::open(after(std::chrono::hours(1)));
  if (!session) {
    ADD_FAILURE() << "there is no desktop";
    std::abort();
  }
  return std::move(*session);
}

}  // namespace

std::map<std::string, std::string> desktopEnvironment() {
  std::map<std::string, std::string> environment;
  for (const char* name : {"DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR"}) {
    environment[name] = std::getenv(name);
  }
  return environment;
}

Json DesktopTest::perform(Peer& host, const std::string& op, Json fields) {
  fields["op"] = op;
  return host.ask(fields.dump());
}

Json findNode(const Json& tree, const std::string& role, const std::string& text,
              const std::string& member) {
  if (!tree.is_object()) {
    return {};
  }
  if (tree.value("role", "") == role && (member.empty() || tree.contains(member)) &&
      (text.empty() || tree.value("title", "") == text || tree.value("value", "") == text)) {
    return tree;
  }
  for (const Json& child : tree.value("children", Json::array())) {
    if (Json found = findNode(child, role, text, member); found.is_object()) {
      return found;
    }
  }
  return {};
}

Json awaitNode(Peer& host, const Program& application, const std::string& role,
               const std::string& text, const std::string& member) {
  Json found;
  eventually([&] {
    const Json request{{"op", "ax_dump"}, {"maxDepth", 25}, {"pid", application.pid()}};
    found = findNode(host.ask(request.dump())["tree"], role, text, member);
    return found.is_object();
  });
  return found;
}

Witness::Witness() : x11_(openSession()), window_(xcb_generate_id(x11_.get())) {
  const std::uint32_t values[] = {
      1, XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_KEY_RELEASE | XCB_EVENT_MASK_BUTTON_PRESS |
             XCB_EVENT_MASK_BUTTON_RELEASE | XCB_EVENT_MASK_STRUCTURE_NOTIFY};
  xcb_create_window(x11_.get(), XCB_COPY_FROM_PARENT, window_, x11_.screen().root, 0, 0, 1920, 1080,
                    0, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                    XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values);
}

Witness::~Witness() {
  xcb_destroy_window(x11_.get(), window_);
}

void Witness::watchInput() {
  xcb_map_window(x11_.get(), window_);
  while (const auto event = x11_.awaitEvent(after(patience))) {
    if ((event->response_type & 0x7F) == XCB_MAP_NOTIFY) {
      break;
    }
  }
  xcb_set_input_focus(x11_.get(), XCB_INPUT_FOCUS_POINTER_ROOT, window_, XCB_CURRENT_TIME);
  ASSERT_TRUE(x11_.roundTrip());
}

std::vector<Witness::Seen> Witness::seen(std::size_t count) {
  std::vector<Seen> all;
  while (all.size() < count) {
    const auto event = x11_.awaitEvent(after(std::chrono::seconds(2)));
    if (!event) {
      break;
    }
    const unsigned type = event->response_type & 0x7FU;
    if (type < XCB_KEY_PRESS || type > XCB_BUTTON_RELEASE) {
      continue;
    }
    const auto& input = reinterpret_cast<const xcb_key_press_event_t&>(*event);
    Seen seen{static_cast<Seen::Kind>(type - XCB_KEY_PRESS), input.detail, input.state & 0xFFU};
    if (type == XCB_KEY_PRESS || type == XCB_KEY_RELEASE) {
      const auto map = keyboardMap();
      const unsigned group = (input.state >> 13U) & 3U;
      const std::size_t columns = map.size() / 248;
      seen.what = map[(input.detail - 8U) * columns + group * 2];
    }
    all.push_back(seen);
  }
  return all;
}

std::pair<int, int> Witness::pointer() {
  const auto reply = x11_.await(xcb_query_pointer(x11_.get(), x11_.screen().root));
  return {reply->root_x, reply->root_y};
}

std::vector<xcb_keysym_t> Witness::keyboardMap() {
  const auto reply = x11_.await(xcb_get_keyboard_mapping(x11_.get(), 8, 248));
  const xcb_keysym_t* const symbols = xcb_get_keyboard_mapping_keysyms(reply.get());
  return {symbols, symbols + xcb_get_keyboard_mapping_keysyms_length(reply.get())};
}

void Witness::lock(std::uint8_t modifiers, std::uint8_t group) {
  xcb_xkb_latch_lock_state(x11_.get(), XCB_XKB_ID_USE_CORE_KBD, 0xFF, modifiers, 1, group, 0, 0, 0);
  ASSERT_TRUE(x11_.roundTrip());
}

std::pair<int, int> Witness::locks() {
  const auto state = x11_.await(xcb_xkb_get_state(x11_.get(), XCB_XKB_ID_USE_CORE_KBD));
  return {state->lockedMods, state->lockedGroup};
}

std::uint32_t Witness::cardinal(xcb_window_t window, const char* property) {
  const auto numbers = Linux::X11::numbers(x11_, window, property);
  return numbers.empty() ? 0 : numbers.front();
}

pid_t Witness::activeProcess() {
  const xcb_window_t active = cardinal(x11_.screen().root, "_NET_ACTIVE_WINDOW");
  return active == XCB_NONE ? 0 : static_cast<pid_t>(cardinal(active, "_NET_WM_PID"));
}

void Witness::awaitActive(pid_t pid) {
  EXPECT_TRUE(eventually([&] { return activeProcess() == pid; })) << "no active window";
}

}  // namespace tervain::test
