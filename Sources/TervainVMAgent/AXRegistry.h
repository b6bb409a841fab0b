#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>

#include "Platform/Accessibility.h"

namespace tervain {

/// The elements that a connection's host may name: a map from short texts, refs ("e1", "e2", …), to
/// elements. No ref is ever given out twice, so an old one can't come to mean another element.
class AXRegistry {
 public:
  /// Keeps the element under a new ref and returns that.
  std::string registerElement(Platform::AXElement element);

  /// The element of a ref that was given out since the last reset, by exactly that text.
  [[nodiscard]] std::optional<Platform::AXElement> operator[](const std::string& ref) const;

  /// Forgets all elements. The numbering goes on.
  void reset() { refs_.clear(); }

 private:
  std::unordered_map<std::string, Platform::AXElement> refs_;
  std::int64_t counter_ = 0;  // the number in the newest ref
};

}  // namespace tervain
