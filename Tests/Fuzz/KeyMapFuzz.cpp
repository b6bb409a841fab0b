// Chords against a plain reading of their rules, which asks the map for single keys alone.
#include <map>
#include <sstream>

#include "Fuzz/Fuzz.h"
#include "VMAgentCore/KeyMap.h"

using namespace tervain;

namespace {

const std::map<std::string, std::uint64_t> modifiers{
    {"cmd", 0x100000},   {"command", 0x100000}, {"meta", 0x100000}, {"super", 0x100000},
    {"ctrl", 0x40000},   {"control", 0x40000},  {"alt", 0x80000},   {"opt", 0x80000},
    {"option", 0x80000}, {"shift", 0x20000},    {"fn", 0x800000}};

std::optional<KeyStroke> expected(const std::string& chord) {
  std::istringstream parts(chord);
  std::string key;
  std::uint64_t flags = 0;
  for (std::string part; std::getline(parts, part, '+');) {
    if (!part.empty()) {
      const auto modifier = modifiers.find(key);
      flags |= modifier == modifiers.end() ? 0 : modifier->second;
      key = part;
    }
  }
  auto stroke = KeyMap::stroke(key);
  if (stroke) {
    fuzz::require(stroke->flags == 0 && stroke->keyCode < 128, "a key that is none");
    stroke->flags = flags;
  }
  return stroke;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string chord(fuzz::textOf(data, size));
  const auto stroke = KeyMap::stroke(chord);
  std::string lower = chord;
  for (char& c : lower) {
    c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
  }
  fuzz::require(stroke == expected(lower), "another stroke than expected");
  return 0;
}
