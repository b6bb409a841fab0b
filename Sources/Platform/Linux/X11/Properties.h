#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Linux/X11/Session.h"

/// Atoms, which stand for names, and the properties of windows, which are named by them.
namespace tervain::Linux::X11 {

/// Gives each name its atom; none when the server doesn't tell. All are asked for before any is
/// waited for.
void findAtoms(Session& x11, std::span<const std::string_view> names, std::span<xcb_atom_t> atoms);

/// The atoms of several names, as `const auto [title, icon] = atoms(x11, {"TITLE", "ICON"})`.
template <std::size_t count>
std::array<xcb_atom_t, count> atoms(Session& x11, const std::string_view (&names)[count]) {
  std::array<xcb_atom_t, count> found{};
  findAtoms(x11, names, found);
  return found;
}

/// The atom of one name.
xcb_atom_t atom(Session& x11, std::string_view name);

/// Asks for the first 256 KiB of a property, of whatever type.
xcb_get_property_cookie_t askForProperty(Session& x11, xcb_window_t window, xcb_atom_t key);

/// The property that was asked for, as numbers of 32 bits: atoms, windows and cardinals are such.
/// Empty when there is no such property, or it holds something else.
std::vector<std::uint32_t> awaitNumbers(Session& x11, xcb_get_property_cookie_t asked);

/// The same for text, which is in whatever encoding the application chose.
std::string awaitText(Session& x11, xcb_get_property_cookie_t asked);

/// A property of numbers, asked for and awaited.
std::vector<std::uint32_t> numbers(Session& x11, xcb_window_t window, xcb_atom_t key);
std::vector<std::uint32_t> numbers(Session& x11, xcb_window_t window, std::string_view name);

}  // namespace tervain::Linux::X11
