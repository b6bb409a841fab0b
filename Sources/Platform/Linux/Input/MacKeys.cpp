#include "Platform/Linux/Input/MacKeys.h"

#include <X11/keysym.h>

#include <algorithm>
#include <iterator>

namespace tervain::Linux::X11 {
namespace {

struct MacKey {
  std::uint16_t keyCode;
  KeySymbols symbols;
};

/// A key that is the same with and without Shift.
constexpr KeySymbols same(xcb_keysym_t symbol) {
  return {symbol, symbol};
}

// clang-format off
constexpr MacKey macKeys[] = {
    {0, {'a', 'A'}}, {1, {'s', 'S'}}, {2, {'d', 'D'}}, {3, {'f', 'F'}}, {4, {'h', 'H'}},
    {5, {'g', 'G'}}, {6, {'z', 'Z'}}, {7, {'x', 'X'}}, {8, {'c', 'C'}}, {9, {'v', 'V'}},
    {11, {'b', 'B'}}, {12, {'q', 'Q'}}, {13, {'w', 'W'}}, {14, {'e', 'E'}}, {15, {'r', 'R'}},
    {16, {'y', 'Y'}}, {17, {'t', 'T'}}, {31, {'o', 'O'}}, {32, {'u', 'U'}}, {34, {'i', 'I'}},
    {35, {'p', 'P'}}, {37, {'l', 'L'}}, {38, {'j', 'J'}}, {40, {'k', 'K'}}, {45, {'n', 'N'}},
    {46, {'m', 'M'}},
    {18, {'1', '!'}}, {19, {'2', '@'}}, {20, {'3', '#'}}, {21, {'4', '$'}}, {22, {'6', '^'}},
    {23, {'5', '%'}}, {25, {'9', '('}}, {26, {'7', '&'}}, {28, {'8', '*'}}, {29, {'0', ')'}},
    {24, {'=', '+'}}, {27, {'-', '_'}}, {30, {']', '}'}}, {33, {'[', '{'}}, {39, {'\'', '"'}},
    {41, {';', ':'}}, {42, {'\\', '|'}}, {43, {',', '<'}}, {44, {'/', '?'}}, {47, {'.', '>'}},
    {50, {'`', '~'}},
    {36, same(XK_Return)}, {48, {XK_Tab, XK_ISO_Left_Tab}}, {49, same(XK_space)},
    {51, same(XK_BackSpace)}, {53, same(XK_Escape)}, {115, same(XK_Home)},
    {116, same(XK_Page_Up)}, {117, same(XK_Delete)}, {119, same(XK_End)},
    {121, same(XK_Page_Down)}, {123, same(XK_Left)}, {124, same(XK_Right)},
    {125, same(XK_Down)}, {126, same(XK_Up)},
    {122, same(XK_F1)}, {120, same(XK_F2)}, {99, same(XK_F3)}, {118, same(XK_F4)},
    {96, same(XK_F5)}, {97, same(XK_F6)}, {98, same(XK_F7)}, {100, same(XK_F8)},
    {101, same(XK_F9)}, {109, same(XK_F10)}, {103, same(XK_F11)}, {111, same(XK_F12)},
    {105, same(XK_F13)}, {107, same(XK_F14)}, {113, same(XK_F15)},
};
// clang-format on

}  // namespace

std::optional<KeySymbols> symbolsOfMacKey(std::uint16_t keyCode) {
  const auto* const found =
      std::find_if(std::begin(macKeys), std::end(macKeys),
                   [keyCode](const MacKey& key) { return key.keyCode == keyCode; });
  return found == std::end(macKeys) ? std::nullopt : std::optional(found->symbols);
}

std::optional<xcb_keysym_t> symbolOfCharacter(char32_t character) {
  switch (character) {
    case U'\b':
      return XK_BackSpace;
    case U'\t':
      return XK_Tab;
    case U'\n':
    case U'\r':
      return XK_Return;
    case U'\x1b':
      return XK_Escape;
    case U'\x7f':
      return XK_Delete;
    default:
      break;
  }
  const bool isControl = character < 0x20 || (character >= 0x80 && character < 0xA0);
  const bool isSurrogate = character >= 0xD800 && character < 0xE000;
  if (isControl || isSurrogate) {
    return std::nullopt;
  }
  constexpr xcb_keysym_t unicode = 0x01000000;  // Latin-1 alone stands for itself
  const auto symbol = static_cast<xcb_keysym_t>(character);
  return character < 0x100 ? symbol : unicode | symbol;
}

}  // namespace tervain::Linux::X11
