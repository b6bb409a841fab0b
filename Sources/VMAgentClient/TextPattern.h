#pragma once

#include <string>
#include <string_view>

namespace tervain {

/// A text to look for, as a person means it: how characters are composed of code points never
/// matters, nor, unless it is to be exact, do upper and lower case in any script.
class TextPattern {
 public:
  /// A part of a text whatever its case, or, when `exact`, the whole of it in the same case. Throws
  /// std::invalid_argument when the text is not UTF-8.
  TextPattern(std::string_view wanted, bool exact);

  /// Whether a text, which must be UTF-8, is wanted.
  [[nodiscard]] bool fits(std::string_view text) const;

 private:
  std::u32string wanted_;
  bool exact_;
};

/// The one way among those of composing its characters that a text is compared in (NFC).
std::string composed(std::string_view text);

}  // namespace tervain
