#include "VMAgentCore/LineSplitBuffer.h"

namespace tervain {
namespace {

/// A buffer that has grown past this and holds less gives its memory back: one huge line should not
/// cost a connection megabytes for the rest of its life.
constexpr std::size_t keptCapacity = 262'144;

}  // namespace

void LineSplitBuffer::append(std::string_view bytes) {
  data_.erase(0, start_);
  scanned_ -= start_;
  start_ = 0;
  data_.append(bytes);
}

std::optional<std::string_view> LineSplitBuffer::next() {
  const std::size_t end = data_.find('\n', scanned_);
  if (end == std::string::npos) {
    scanned_ = data_.size();
    releaseTaken();
    return std::nullopt;
  }
  std::string_view line(data_.data() + start_, end - start_);
  start_ = scanned_ = end + 1;
  if (line.ends_with('\r')) {
    line.remove_suffix(1);
  }
  return line;
}

void LineSplitBuffer::releaseTaken() {
  if (data_.capacity() > keptCapacity && pendingBytes() < keptCapacity) {
    data_.erase(0, start_);
    data_.shrink_to_fit();
    scanned_ -= start_;
    start_ = 0;
  }
}

}  // namespace tervain
