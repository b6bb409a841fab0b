// Chords against a plain reading of their rules, which asks the map for single keys alone.
#include <sstream>

#include "Fuzz/Fuzz.h"
#include "VMAgentCore/KeyMap.h"

using namespace tervain;

namespace {

std::optional<KeyStroke> expected(std::string chord) {
  for (char& c : chord) {
    c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
  }
  std::istringstream parts(chord);
  std::string key;
  std::uint64_t flags = 0;
  for (std::string part; std::getline(parts, part, '+');) {
    if (!part.empty()) {
      flags |= KeyMap::stroke(key + "+a")->flags;  // none unless it is a modifier
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
  const std::string chord(fuzz::textOf(data, size));
  fuzz::require(KeyMap::stroke(chord) == expected(chord), "another stroke than expected");
  return 0;
}
