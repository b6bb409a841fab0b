// Base64 both ways: any bytes come back, and what is taken for a text are the bytes of that text.
#include "Fuzz/Fuzz.h"
#include "VMAgentCore/Base64/Base64.h"

using namespace tervain;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input = fuzz::textOf(data, size);
  const auto encoded = [](std::string_view bytes) {
    std::string text;
    appendBase64(text, bytes);
    fuzz::require(decodeEscapedBase64(text) == bytes, "other bytes through escapes");
    std::erase(text, '\\');
    fuzz::require(decodeBase64(text) == bytes, "not the same bytes after encoding and decoding");
    return text;
  };
  encoded(input);
  if (const auto bytes = decodeBase64(input)) {
    std::string text = encoded(*bytes);
    // The last digit may have bits of no byte.
    const std::size_t last = bytes->empty() ? 0 : (bytes->size() * 8 + 5) / 6 - 1;
    text.replace(last, text.empty() ? 0 : 1, input.substr(last, 1));
    fuzz::require(text == input && decodeEscapedBase64(input) == bytes,
                  "the bytes of another text");
  }
  return 0;
}
