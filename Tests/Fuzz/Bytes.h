#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>

namespace tervain::fuzz {

/// Bytes of an input, taken from its front. Zeros when there are no more.
class Bytes {
 public:
  explicit Bytes(std::string_view bytes) : bytes_(bytes) {}

  [[nodiscard]] bool empty() const { return bytes_.empty(); }

  std::string_view take(std::size_t count) {
    const std::string_view taken = bytes_.substr(0, count);
    bytes_.remove_prefix(taken.size());
    return taken;
  }

  std::uint8_t byte() { return value<std::uint8_t>(); }

  /// A number in the machine's own byte order.
  template <class T>
  T value() {
    T result{};
    const std::string_view bytes = take(sizeof result);
    std::copy(bytes.begin(), bytes.end(), reinterpret_cast<char*>(&result));
    return result;
  }

 private:
  std::string_view bytes_;
};

}  // namespace tervain::fuzz
