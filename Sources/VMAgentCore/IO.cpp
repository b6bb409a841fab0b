#include "VMAgentCore/IO.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>

#include "VMAgentCore/AgentError.h"

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

bool writeSome(int fd, std::string_view& data) {
  while (!data.empty()) {
    const ssize_t n = write(fd, data.data(), data.size());
    if (n > 0) {
      data.remove_prefix(static_cast<std::size_t>(n));
    } else if (n == 0 || errno != EINTR) {
      return n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
    }
  }
  return true;
}

void waitForEvents(std::span<pollfd> entries) {
  while (poll(entries.data(), static_cast<nfds_t>(entries.size()), -1) < 0) {
    if (errno != EINTR && errno != EAGAIN) {
      throw AgentError::posix("poll", errno);
    }
  }
}

bool waitForEvents(std::span<pollfd> entries, Deadline deadline) {
  using std::chrono::milliseconds;
  for (;;) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
    // A longer wait than fits is cut into several.
    const auto limit = std::clamp(left, milliseconds(0), milliseconds(std::chrono::hours(1)));
    const int ready =
        poll(entries.data(), static_cast<nfds_t>(entries.size()), static_cast<int>(limit.count()));
    if (ready < 0 && errno != EINTR && errno != EAGAIN) {
      throw AgentError::posix("poll", errno);
    }
    if (ready > 0 || (ready == 0 && left <= limit)) {
      return ready > 0;
    }
  }
}

bool readToEnd(int fd, std::string& text, std::size_t most, Deadline deadline) try {
  std::array<char, 4096> buffer{};
  for (;;) {
    pollfd readable{fd, POLLIN, 0};
    if (!waitForEvents({&readable, 1}, deadline)) {
      return false;
    }
    const ssize_t n = readSome(fd, buffer);
    if (n <= 0) {
      return true;
    }
    text.append(buffer.data(), std::min(static_cast<std::size_t>(n), most - text.size()));
  }
} catch (const AgentError&) {
  return true;
}

void occupyStandardDescriptors() {
  int fd = 0;
  do {
    fd = open("/dev/null", O_RDWR);  // NOLINT(*-vararg): stays open on purpose where it fits
  } while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd >= 0) {
    close(fd);
  }
}

}  // namespace tervain
