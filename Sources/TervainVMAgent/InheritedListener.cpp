#include "TervainVMAgent/InheritedListener.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <string_view>

namespace tervain {
namespace {

constexpr int firstFD = 3;

/// A variable's value as a decimal number, or 0.
int numberIn(const char* variable) {
  const char* const text = std::getenv(variable);
  const std::string_view digits = text ? text : "";
  int number = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stop, failed] = std::from_chars(digits.data(), end, number);
  return failed == std::errc() && stop == end ? number : 0;
}

/// An option of a socket. Nothing when it is no socket, or its system has no such option.
std::optional<int> socketOption(int fd, int option) {
  int value = 0;
  socklen_t size = sizeof value;
  return getsockopt(fd, SOL_SOCKET, option, &value, &size) == 0 ? std::optional(value)
                                                                : std::nullopt;
}

bool isListeningStream(int fd) {
  // Not every kernel tells whether a socket listens.
  return socketOption(fd, SO_TYPE) == SOCK_STREAM && socketOption(fd, SO_ACCEPTCONN) != 0;
}

}  // namespace

std::optional<UniqueFD> inheritedListener() {
  const int count = numberIn("LISTEN_PID") == getpid() ? numberIn("LISTEN_FDS") : 0;
  for (const char* variable : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"}) {
    unsetenv(variable);
  }
  if (count < 1 || !isListeningStream(firstFD)) {
    return std::nullopt;
  }
  fcntl(firstFD, F_SETFD, FD_CLOEXEC);
  return UniqueFD(firstFD);
}

}  // namespace tervain
