#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace tervain {

/// Cuts a byte stream into lines. A line ends at a line feed; one carriage return before it is
/// dropped. Empty lines are lines too.
class LineSplitBuffer {
 public:
  LineSplitBuffer() = default;
  ~LineSplitBuffer() = default;
  LineSplitBuffer(const LineSplitBuffer&) = delete;
  LineSplitBuffer& operator=(const LineSplitBuffer&) = delete;
  LineSplitBuffer(LineSplitBuffer&& other) noexcept { *this = std::move(other); }
  LineSplitBuffer& operator=(LineSplitBuffer&& other) noexcept {
    data_ = std::exchange(other.data_, {});
    start_ = std::exchange(other.start_, 0);
    scanned_ = std::exchange(other.scanned_, 0);
    return *this;
  }

  /// Adds bytes at the end. Lines handed out before are no longer valid.
  void append(std::string_view bytes);

  /// Takes the next complete line, or nothing if there is none yet. The view lives until the
  /// buffer is next used. A buffer that has no more lines does not keep the memory of large ones.
  std::optional<std::string_view> next();

  /// Gives the memory of large lines back as soon as they are done with, while others may wait.
  void releaseTaken();

  /// How many bytes are held that have not been handed out as lines.
  [[nodiscard]] std::size_t pendingBytes() const { return data_.size() - start_; }

 private:
  std::string data_;
  std::size_t start_ = 0;    // where the next line begins
  std::size_t scanned_ = 0;  // no line feed stands between start_ and here
};

}  // namespace tervain
