// Base64 both ways: any bytes come back, the fast way says what the plain way says, and a text is
// taken exactly when it is valid.
#include <algorithm>

#include "Fuzz/Fuzz.h"
#include "VMAgentCore/Base64/Base64.h"

using namespace tervain;

namespace {

std::string escaped(std::string_view bytes) {
  std::string text;
  appendBase64(text, bytes);
  return text;
}

std::string encoded(std::string_view bytes) {
  std::string text = escaped(bytes);
  text.erase(std::remove(text.begin(), text.end(), '\\'), text.end());
  return text;
}

/// Encodes so few bytes at a time that no processor has a fast way for them.
std::string plainlyEncoded(std::string_view bytes) {
  constexpr std::size_t few = 12;
  std::string text;
  for (; !bytes.empty(); bytes.remove_prefix(std::min(few, bytes.size()))) {
    text += encoded(bytes.substr(0, few));
  }
  return text;
}

/// Whether it is made of base64 digits with padding where it may be.
bool isValid(std::string_view text) {
  const std::size_t end = text.find_last_not_of('=') + 1;
  const auto isDigit = [](char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' ||
           c == '/';
  };
  return text.size() % 4 == 0 && text.size() - end <= 2 &&
         std::all_of(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(end), isDigit);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input = fuzz::textOf(data, size);
  const std::string text = encoded(input);
  fuzz::require(text.size() == (size + 2) / 3 * 4, "a text of the wrong length");
  fuzz::require(text == plainlyEncoded(input), "the fast way differs from the plain one");
  fuzz::require(decodeBase64(text) == input, "not the same bytes after encoding and decoding");
  fuzz::require(decodeEscapedBase64(escaped(input)) == input, "other bytes through escapes");
  const auto bytes = decodeBase64(input);
  fuzz::require(bytes.has_value() == isValid(input), "a valid text refused, or another taken");
  // The last digit may have bits of no byte.
  const std::size_t last = bytes ? (bytes->size() * 8 + 5) / 6 - 1 : 0;
  fuzz::require(!bytes || bytes->empty() || encoded(*bytes).starts_with(input.substr(0, last)),
                "the bytes of another text");
  fuzz::require(!isValid(input) || decodeEscapedBase64(input) == bytes, "escapes where none are");
  return 0;
}
