#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "VMAgentClient/ElementTree.h"

/// Texts that a model gets to read: never longer than it can take, and always UTF-8.
namespace tervain::mcp {

/// The most bytes of a result's text. Hosts refuse results beyond 25,000 tokens.
inline constexpr std::size_t mostText = 60'000;

/// The text cut behind a whole line, with a last line that says so if it was.
std::string cutLines(std::string text, std::size_t most, const std::string& advice);

/// An element whose texts are short enough for a line: applications may have a book as a title.
Element shortened(Element element);

/// Output of which the beginning and the end are kept, and the middle is counted.
class BoundedOutput {
 public:
  explicit BoundedOutput(std::size_t most) : most_(most) {}

  void append(std::string_view bytes);
  [[nodiscard]] bool truncated() const { return omitted_ > 0 || tail_.size() > most_ / 2; }

  /// What there is, with a mark where something was left out.
  [[nodiscard]] std::string text() const;

 private:
  std::size_t most_;
  std::string head_;
  std::string tail_;  // up to twice its share, so that it is rarely moved
  std::size_t omitted_ = 0;
};

}  // namespace tervain::mcp
