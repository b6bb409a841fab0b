#include "Platform/Linux/X11/Windows.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "Platform/Linux/X11/Properties.h"

namespace tervain::Linux::X11 {
namespace {

/// The names of the properties that tell about a window.
struct Atoms {
  xcb_atom_t title;
  xcb_atom_t shadow;
};

Atoms findAtoms(Session& x11) {
  const auto [title, shadow] = atoms(x11, {"_NET_WM_NAME", "_GTK_FRAME_EXTENTS"});
  return {title, shadow};
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
  const auto attributes = x11.await(asked.attributes);
  const auto geometry = x11.await(asked.geometry);
  const auto origin = x11.await(asked.origin);
  auto title = awaitText(x11, asked.title);
  const auto shadow = awaitNumbers(x11, asked.shadow);
  if (!attributes || !geometry || !origin) {
    return std::nullopt;
  }
  Window window{asked.id,
                pid,
                {origin->dst_x, origin->dst_y, geometry->width, geometry->height},
                attributes->override_redirect == 0,
                std::move(title),
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
  const auto ids = x11.await(xcb_res_query_client_ids(x11.get(), 1, &wanted));
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
  const auto check = numbers(x11, x11.screen().root, "_NET_SUPPORTING_WM_CHECK");
  return check.empty() ? std::nullopt : processOf(x11, check.front());
}

/// Those of the windows that belong to a process.
std::vector<Window> describeOwn(Session& x11, const std::vector<std::uint32_t>& ids, pid_t pid) {
  const Atoms atoms = findAtoms(x11);
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

}  // namespace

std::optional<pid_t> processOf(Session& x11, xcb_window_t window) {
  if (const auto pid = clientProcess(x11, window); pid && *pid > 0) {
    return pid;
  }
  const auto pid = numbers(x11, window, "_NET_WM_PID");
  return pid.empty() ? std::nullopt : std::optional(static_cast<pid_t>(pid.front()));
}

bool isManaged(Session& x11) {
  return !numbers(x11, x11.screen().root, "_NET_SUPPORTING_WM_CHECK").empty();
}

xcb_window_t activeWindow(Session& x11) {
  const auto active = numbers(x11, x11.screen().root, "_NET_ACTIVE_WINDOW");
  return active.empty() ? xcb_window_t{XCB_WINDOW_NONE} : active.front();
}

std::optional<pid_t> activeProcess(Session& x11) {
  const xcb_window_t active = activeWindow(x11);
  return active == XCB_WINDOW_NONE ? std::nullopt : processOf(x11, active);
}

std::vector<Window> windowsOf(Session& x11, pid_t pid) {
  return describeOwn(x11, numbers(x11, x11.screen().root, "_NET_CLIENT_LIST_STACKING"), pid);
}

std::vector<Window> popupsOf(Session& x11, pid_t pid) {
  const auto tree = x11.await(xcb_query_tree(x11.get(), x11.screen().root));
  if (!tree) {
    return {};
  }
  const xcb_window_t* const first = xcb_query_tree_children(tree.get());
  std::vector<std::pair<xcb_window_t, xcb_get_window_attributes_cookie_t>> asked;
  for (int i = 0; i < xcb_query_tree_children_length(tree.get()); ++i) {
    asked.emplace_back(first[i], xcb_get_window_attributes(x11.get(), first[i]));
  }
  std::vector<std::uint32_t> open;
  for (const auto& [id, cookie] : asked) {
    const auto attributes = x11.await(cookie);
    if (attributes && attributes->override_redirect != 0 &&
        attributes->map_state == XCB_MAP_STATE_VIEWABLE) {
      open.push_back(id);
    }
  }
  return describeOwn(x11, open, pid);
}

std::optional<Window> windowAt(Session& x11, int x, int y) {
  const auto manager = windowManager(x11);
  xcb_window_t at = x11.screen().root;
  // Down through the window manager's frame to the first window of somebody else's.
  for (;;) {
    const auto under = x11.await(xcb_translate_coordinates(x11.get(), x11.screen().root, at,
                                                           static_cast<std::int16_t>(x),
                                                           static_cast<std::int16_t>(y)));
    if (!under || under->child == XCB_WINDOW_NONE) {
      return std::nullopt;
    }
    at = under->child;
    const auto pid = processOf(x11, at);
    if (pid && pid != manager) {
      return describe(x11, Questions(x11, findAtoms(x11), at), *pid);
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
  x11.roundTrip();  // which shows that the server has got it
}

}  // namespace tervain::Linux::X11
