#include "VMAgentCore/KeyMap.h"

#include <algorithm>
#include <iterator>
#include <string>

namespace tervain {
namespace {

template <class Value>
struct Entry {
  std::string_view name;
  Value value;
};

constexpr Entry<std::uint64_t> modifierFlags[] = {
    {"cmd", EventFlags::maskCommand},      {"command", EventFlags::maskCommand},
    {"meta", EventFlags::maskCommand},     {"super", EventFlags::maskCommand},
    {"ctrl", EventFlags::maskControl},     {"control", EventFlags::maskControl},
    {"alt", EventFlags::maskAlternate},    {"opt", EventFlags::maskAlternate},
    {"option", EventFlags::maskAlternate}, {"shift", EventFlags::maskShift},
    {"fn", EventFlags::maskSecondaryFn},
};

// clang-format off
constexpr Entry<std::uint16_t> keyCodes[] = {
    {"a", 0}, {"s", 1}, {"d", 2}, {"f", 3}, {"h", 4}, {"g", 5}, {"z", 6}, {"x", 7}, {"c", 8},
    {"v", 9}, {"b", 11}, {"q", 12}, {"w", 13}, {"e", 14}, {"r", 15}, {"y", 16}, {"t", 17},
    {"o", 31}, {"u", 32}, {"i", 34}, {"p", 35}, {"l", 37}, {"j", 38}, {"k", 40}, {"n", 45},
    {"m", 46},
    {"1", 18}, {"2", 19}, {"3", 20}, {"4", 21}, {"6", 22}, {"5", 23}, {"9", 25}, {"7", 26},
    {"8", 28}, {"0", 29},
    {"=", 24}, {"-", 27}, {"]", 30}, {"[", 33}, {"'", 39}, {";", 41}, {"\\", 42}, {",", 43},
    {"/", 44}, {".", 47}, {"`", 50},
    {"return", 36}, {"tab", 48}, {"space", 49}, {"delete", 51}, {"esc", 53}, {"home", 115},
    {"pageup", 116}, {"forwarddelete", 117}, {"end", 119}, {"pagedown", 121}, {"left", 123},
    {"right", 124}, {"down", 125}, {"up", 126},
    {"f1", 122}, {"f2", 120}, {"f3", 99}, {"f4", 118}, {"f5", 96}, {"f6", 97}, {"f7", 98},
    {"f8", 100}, {"f9", 101}, {"f10", 109}, {"f11", 103}, {"f12", 111}, {"f13", 105},
    {"f14", 107}, {"f15", 113},
};
// clang-format on
static_assert(std::size(keyCodes) == 26 + 10 + 11 + 14 + 15);

constexpr Entry<std::string_view> aliases[] = {
    {"enter", "return"},   {"escape", "esc"},     {"backspace", "delete"}, {"arrowup", "up"},
    {"arrowdown", "down"}, {"arrowleft", "left"}, {"arrowright", "right"}, {"spacebar", "space"},
};

template <class Value, std::size_t size>
std::optional<Value> find(const Entry<Value> (&table)[size], std::string_view name) {
  const auto* const found =
      std::find_if(std::begin(table), std::end(table),
                   [name](const Entry<Value>& entry) { return entry.name == name; });
  return found == std::end(table) ? std::nullopt : std::optional(found->value);
}

/// Lower case for ASCII alone: no name has other letters, and the bytes of UTF-8 stay what they
/// are.
std::string lowerCased(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return lower;
}

}  // namespace

std::string_view KeyMap::normalizeKeyName(std::string_view name) {
  return find(aliases, name).value_or(name);
}

std::optional<KeyStroke> KeyMap::stroke(std::string_view chord) {
  const std::string lower = lowerCased(chord);
  std::string_view rest = lower;
  std::string_view key;  // the last part so far that is not empty
  std::uint64_t flags = 0;
  while (!rest.empty()) {
    const std::string_view part = rest.substr(0, rest.find('+'));
    rest.remove_prefix(std::min(part.size() + 1, rest.size()));
    if (!part.empty()) {
      flags |= find(modifierFlags, key).value_or(0);
      key = part;
    }
  }
  const auto keyCode = find(keyCodes, normalizeKeyName(key));
  return keyCode ? std::optional(KeyStroke{*keyCode, flags}) : std::nullopt;
}

}  // namespace tervain
