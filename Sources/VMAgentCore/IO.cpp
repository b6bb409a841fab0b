#include "VMAgentCore/IO.h"

#include <unistd.h>

#include <cerrno>

namespace tervain {

ssize_t readSome(int fd, std::span<char> buffer) {
  for (;;) {
    const ssize_t n = read(fd, buffer.data(), buffer.size());
    if (n >= 0 || errno != EINTR) {
      return n;
    }
  }
}

bool writeAll(int fd, std::string_view data) {
  while (!data.empty()) {
    const ssize_t n = write(fd, data.data(), data.size());
    if (n < 0) {
      if (errno == EINTR) {
        continue;
      }
      return false;
    }
    data.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

}  // namespace tervain
