#include <gtest/gtest.h>

#include <string>

#include "VMAgentCore/KeyMap.h"

namespace tervain {

void PrintTo(const KeyStroke& stroke, std::ostream* out) {
  *out << "key " << stroke.keyCode << " flags 0x" << std::hex << stroke.flags << std::dec;
}

namespace {

TEST(KeyMap, ReadsChords) {
  const std::pair<const char*, std::optional<KeyStroke>> cases[] = {
      {"cmd+s", KeyStroke{1, 0x100000}},
      {"Cmd+Shift+Z", KeyStroke{6, 0x120000}},
      {"ctrl+alt+delete", KeyStroke{51, 0xC0000}},
      {"super+meta+command+control+option+enter", KeyStroke{36, 0x1C0000}},
      {"shift+ArrowUp", KeyStroke{126, 0x20000}},
      {"fn+opt+F15", KeyStroke{113, 0x880000}},
      {"escape+a", KeyStroke{0, 0}},
      {"hyper+spacebar", KeyStroke{49, 0}},
      {"backspace", KeyStroke{51, 0}},
      {"escape", KeyStroke{53, 0}},
      {"arrowdown", KeyStroke{125, 0}},
      {"arrowleft", KeyStroke{123, 0}},
      {"arrowright", KeyStroke{124, 0}},
      {"+cmd++s+", KeyStroke{1, 0x100000}},
      {"\\", KeyStroke{42, 0}},
      {"cmd + s", std::nullopt},
      {"cmd", std::nullopt},
      {"+", std::nullopt},
      {"", std::nullopt},
      {"cmd+\xc3\x84", std::nullopt}};
  for (const auto& [chord, stroke] : cases) {
    EXPECT_EQ(KeyMap::stroke(chord), stroke) << chord;
  }
}

}  // namespace
}  // namespace tervain
