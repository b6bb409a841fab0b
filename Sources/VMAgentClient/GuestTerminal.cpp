#include "VMAgentClient/GuestTerminal.h"

namespace tervain::GuestTerminal {

std::string Greeting::take(std::string_view bytes) {
  if (!looking_) {
    return std::string(bytes);
  }
  held_.append(bytes);
  const std::size_t start = held_.find(marker_);
  const std::size_t end = start == held_.npos ? held_.npos : held_.find('\n', start);
  looking_ = end == held_.npos && held_.size() <= most;
  if (end != held_.npos) {
    path_ = held_.substr(start + marker_.size(), end - start - marker_.size());
    path_.erase(path_.find_last_not_of('\r') + 1);
    held_.erase(start, end + 1 - start);
  }
  return looking_ ? std::string() : rest();
}

std::string Escape::take(std::string_view bytes) {
  std::string passed;
  for (const char c : bytes) {
    if (pending_) {
      pending_ = false;
      if (c == '.') {
        throw Left();
      }
      passed += '~';
      if (c == '~') {
        continue;
      }
    } else if (atStart_ && c == '~') {
      pending_ = true;
      atStart_ = false;
      continue;
    }
    passed += c;
    atStart_ = c == '\r' || c == '\n';
  }
  return passed;
}

}  // namespace tervain::GuestTerminal
