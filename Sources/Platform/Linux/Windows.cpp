#include "Platform/Linux/Windows.h"

#include <xcb/res.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace tervain::X11 {
namespace {

constexpr std::uint32_t maxWords = 65536;  // how much of a property is read, in words of 32 bits

using PropertyReply = Reply<xcb_get_property_reply_t>;

xcb_intern_atom_cookie_t askForAtom(Session& x11, std::string_view name) {
  return xcb_intern_atom(x11.get(), /*only_if_exists=*/1, static_cast<std::uint16_t>(name.size()),
                         name.data());
}

xcb_atom_t keepAtom(Session& x11, xcb_intern_atom_cookie_t cookie) {
  const auto reply = x11.await<xcb_intern_atom_reply_t>(cookie.sequence);
  return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
}

xcb_atom_t atom(Session& x11, std::string_view name) {
  return keepAtom(x11, askForAtom(x11, name));
}

xcb_get_property_cookie_t askForProperty(Session& x11, xcb_window_t window, xcb_atom_t key) {
  return xcb_get_property(x11.get(), 0, window, key, XCB_GET_PROPERTY_TYPE_ANY, 0, maxWords);
}

std::vector<std::uint32_t> words(const PropertyReply& reply) {
  if (!reply || reply->format != 32) {
    return {};
  }
  const auto* first = static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()));
  return {first, first + reply->value_len};
}

std::vector<std::uint32_t> words(Session& x11, xcb_window_t window, std::string_view name) {
  const auto cookie = askForProperty(x11, window, atom(x11, name));
  return words(x11.await<xcb_get_property_reply_t>(cookie.sequence));
}

std::string text(const PropertyReply& reply) {
  if (!reply || reply->format != 8) {
    return {};
  }
  return {static_cast<const char*>(xcb_get_property_value(reply.get())), reply->value_len};
}

/// The names of the properties that tell about a window.
struct Atoms {
  xcb_atom_t title;
  xcb_atom_t shadow;
};

Atoms internAtoms(Session& x11) {
  const auto title = askForAtom(x11, "_NET_WM_NAME");
  const auto shadow = askForAtom(x11, "_GTK_FRAME_EXTENTS");
  return {keepAtom(x11, title), keepAtom(x11, shadow)};
}

/// Everything about a window, asked for at once.
struct Questions {
  Questions(Session& x11, const Atoms& atoms, xcb_window_t window)
      : id(window),
        attributes(xcb_get_window_attributes(x11.get(), window)),
        geometry(xcb_get_geometry(x11.get(), window)),
        origin(xcb_translate_coordinates(x11.get(), window, x11.screen().root, 0, 0)),
        title(askForProperty(x11, window, atoms.title)),
        shadow(askForProperty(x11, window, atoms.shadow)) {}

  xcb_window_t id;
  xcb_get_window_attributes_cookie_t attributes;
  xcb_get_geometry_cookie_t geometry;
  xcb_translate_coordinates_cookie_t origin;
  xcb_get_property_cookie_t title;
  xcb_get_property_cookie_t shadow;
};

std::optional<Window> describe(Session& x11, const Questions& asked, pid_t pid) {
  const auto attributes = x11.await<xcb_get_window_attributes_reply_t>(asked.attributes.sequence);
  const auto geometry = x11.await<xcb_get_geometry_reply_t>(asked.geometry.sequence);
  const auto origin = x11.await<xcb_translate_coordinates_reply_t>(asked.origin.sequence);
  const auto title = x11.await<xcb_get_property_reply_t>(asked.title.sequence);
  const auto shadow = words(x11.await<xcb_get_property_reply_t>(asked.shadow.sequence));
  if (!attributes || !geometry || !origin) {
    return std::nullopt;
  }
  Window window{asked.id,
                pid,
                {origin->dst_x, origin->dst_y, geometry->width, geometry->height},
                attributes->override_redirect == 0,
                text(title),
                std::nullopt};
  // The application chose the numbers.
  const auto isWidth = [](std::uint32_t width) { return width <= UINT16_MAX; };
  if (shadow.size() == 4 && std::all_of(shadow.begin(), shadow.end(), isWidth)) {
    window.shadow = {static_cast<int>(shadow[0]), static_cast<int>(shadow[1]),
                     static_cast<int>(shadow[2]), static_cast<int>(shadow[3])};
  }
  return window;
}

/// The process that the X server knows to be behind a window.
std::optional<pid_t> clientProcess(Session& x11, xcb_window_t window) {
  const xcb_res_client_id_spec_t wanted{window, XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
  const auto ids = x11.await<xcb_res_query_client_ids_reply_t>(
      xcb_res_query_client_ids(x11.get(), 1, &wanted).sequence);
  if (!ids) {
    return std::nullopt;
  }
  for (auto id = xcb_res_query_client_ids_ids_iterator(ids.get()); id.rem > 0;
       xcb_res_client_id_value_next(&id)) {
    if ((id.data->spec.mask & XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID) != 0 &&
        xcb_res_client_id_value_value_length(id.data) > 0) {
      return static_cast<pid_t>(*xcb_res_client_id_value_value(id.data));
    }
  }
  return std::nullopt;
}

std::optional<pid_t> windowManager(Session& x11) {
  const auto check = words(x11, x11.screen().root, "_NET_SUPPORTING_WM_CHECK");
  return check.empty() ? std::nullopt : processOf(x11, check.front());
}

}  // namespace

std::optional<pid_t> processOf(Session& x11, xcb_window_t window) {
  if (const auto pid = clientProcess(x11, window); pid && *pid > 0) {
    return pid;
  }
  const auto pid = words(x11, window, "_NET_WM_PID");
  return pid.empty() ? std::nullopt : std::optional(static_cast<pid_t>(pid.front()));
}

std::optional<pid_t> activeProcess(Session& x11) {
  const auto active = words(x11, x11.screen().root, "_NET_ACTIVE_WINDOW");
  if (active.empty() || active.front() == XCB_WINDOW_NONE) {
    return std::nullopt;
  }
  return processOf(x11, active.front());
}

std::vector<Window> windowsOf(Session& x11, pid_t pid) {
  const auto ids = words(x11, x11.screen().root, "_NET_CLIENT_LIST_STACKING");
  const Atoms atoms = internAtoms(x11);
  std::vector<Questions> asked;
  for (const xcb_window_t id : ids) {
    if (processOf(x11, id) == pid) {
      asked.emplace_back(x11, atoms, id);
    }
  }
  std::vector<Window> windows;
  for (const Questions& questions : asked) {
    if (auto window = describe(x11, questions, pid)) {
      windows.push_back(std::move(*window));
    }
  }
  return windows;
}

std::optional<Window> windowAt(Session& x11, int x, int y) {
  const auto manager = windowManager(x11);
  xcb_window_t at = x11.screen().root;
  // Down through the window manager's frame to the first window of somebody else's.
  for (;;) {
    const auto under = x11.await<xcb_translate_coordinates_reply_t>(
        xcb_translate_coordinates(x11.get(), x11.screen().root, at, static_cast<std::int16_t>(x),
                                  static_cast<std::int16_t>(y))
            .sequence);
    if (!under || under->child == XCB_WINDOW_NONE) {
      return std::nullopt;
    }
    at = under->child;
    const auto pid = processOf(x11, at);
    if (pid && pid != manager) {
      return describe(x11, Questions(x11, internAtoms(x11), at), *pid);
    }
  }
}

void activate(Session& x11, xcb_window_t window) {
  xcb_client_message_event_t event{};
  event.response_type = XCB_CLIENT_MESSAGE;
  event.format = 32;
  event.window = window;
  event.type = atom(x11, "_NET_ACTIVE_WINDOW");
  constexpr std::uint32_t fromPager = 2;
  event.data.data32[0] = fromPager;
  if (event.type == XCB_ATOM_NONE) {
    return;
  }
  std::array<char, 32> bytes{};  // xcb sends that many
  std::memcpy(bytes.data(), &event, sizeof event);
  xcb_send_event(x11.get(), 0, x11.screen().root,
                 XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                 bytes.data());
  // A reply shows that the server has got it.
  x11.await<xcb_get_input_focus_reply_t>(xcb_get_input_focus(x11.get()).sequence);
}

}  // namespace tervain::X11
