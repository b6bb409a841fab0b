#include "Platform/Linux/X11/Properties.h"

#include <algorithm>

namespace tervain::Linux::X11 {
namespace {

constexpr std::uint32_t maxWords = 65'536;  // how much of a property is read, in words of 32 bits

}  // namespace

void findAtoms(Session& x11, std::span<const std::string_view> names, std::span<xcb_atom_t> atoms) {
  std::vector<xcb_intern_atom_cookie_t> asked;
  for (const std::string_view name : names) {
    asked.push_back(xcb_intern_atom(x11.get(), /*only_if_exists=*/0,
                                    static_cast<std::uint16_t>(name.size()), name.data()));
  }
  std::transform(asked.begin(), asked.end(), atoms.begin(), [&x11](auto cookie) {
    const auto reply = x11.await(cookie);
    return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
  });
}

xcb_atom_t atom(Session& x11, std::string_view name) {
  return atoms(x11, {name}).front();
}

xcb_get_property_cookie_t askForProperty(Session& x11, xcb_window_t window, xcb_atom_t key) {
  return xcb_get_property(x11.get(), /*_delete=*/0, window, key, XCB_GET_PROPERTY_TYPE_ANY,
                          /*long_offset=*/0, maxWords);
}

std::vector<std::uint32_t> awaitNumbers(Session& x11, xcb_get_property_cookie_t asked) {
  const auto reply = x11.await(asked);
  if (!reply || reply->format != 32) {
    return {};
  }
  const auto* const first = static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()));
  return {first, first + reply->value_len};
}

std::string awaitText(Session& x11, xcb_get_property_cookie_t asked) {
  const auto reply = x11.await(asked);
  if (!reply || reply->format != 8) {
    return {};
  }
  return {static_cast<const char*>(xcb_get_property_value(reply.get())), reply->value_len};
}

std::vector<std::uint32_t> numbers(Session& x11, xcb_window_t window, xcb_atom_t key) {
  return awaitNumbers(x11, askForProperty(x11, window, key));
}

std::vector<std::uint32_t> numbers(Session& x11, xcb_window_t window, std::string_view name) {
  return numbers(x11, window, atom(x11, name));
}

}  // namespace tervain::Linux::X11
