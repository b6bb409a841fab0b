#include <gtest/gtest.h>

#include <set>
#include <string>

#include "VMAgentCore/KeyMap.h"
#include "VMAgentCore/Unicode.h"

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

TEST(KeyMap, GivesEveryKeyACodeOfItsOwn) {
  std::set<std::uint16_t> codes;
  const auto add = [&codes](const std::string& name) {
    const auto stroke = KeyMap::stroke(name);
    ASSERT_TRUE(stroke) << name;
    EXPECT_TRUE(codes.insert(stroke->keyCode).second) << name;
  };
  for (const char c : std::string("abcdefghijklmnopqrstuvwxyz0123456789=-][';\\,/.`")) {
    add({c});
  }
  for (const char* name : {"return", "tab", "space", "delete", "esc", "home", "end", "pageup",
                           "pagedown", "forwarddelete", "left", "right", "down", "up"}) {
    add(name);
  }
  for (int n = 1; n <= 15; ++n) {
    add("f" + std::to_string(n));
  }
  EXPECT_EQ(codes.size(), 76U);
}

TEST(KeyMap, KnowsOtherNamesForKeys) {
  for (const auto& [alias, name] :
       {std::pair("enter", "return"), std::pair("escape", "esc"), std::pair("backspace", "delete"),
        std::pair("arrowup", "up"), std::pair("arrowdown", "down"), std::pair("arrowleft", "left"),
        std::pair("arrowright", "right"), std::pair("spacebar", "space")}) {
    EXPECT_EQ(KeyMap::stroke(alias), KeyMap::stroke(name)) << alias;
  }
}

TEST(Unicode, ConvertsToUtf16) {
  EXPECT_EQ(utf16(""), u"");
  EXPECT_EQ(utf16(std::string("a\0\x7f", 3)), std::u16string(u"a\0\x7f", 3));
  EXPECT_EQ(utf16("\u0080ß\u07ff\u0800漢\uffff"), u"\u0080ß\u07ff\u0800漢\uffff");
  EXPECT_EQ(utf16("\U00010000😀\U0010ffff"), u"\U00010000😀\U0010ffff");
  EXPECT_EQ(codePoint(0xD83D, 0xDE00), U'😀');
}

}  // namespace
}  // namespace tervain
