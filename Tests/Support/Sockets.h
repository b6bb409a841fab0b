#pragma once

#include <fcntl.h>
#include <sys/socket.h>

#include "VMAgentCore/UniqueFD.h"

/// Unix sockets that no program inherits, made so as every system can.
namespace tervain::test {

inline UniqueFD closedOnExec(int fd) {
  fcntl(fd, F_SETFD, FD_CLOEXEC);
  return UniqueFD(fd);
}

inline UniqueFD unixSocket() {
  return closedOnExec(socket(AF_UNIX, SOCK_STREAM, 0));
}

struct SocketPair {
  UniqueFD host;
  UniqueFD agent;
};

inline SocketPair socketPair(int type = SOCK_STREAM) {
  int ends[2] = {-1, -1};
  socketpair(AF_UNIX, type, 0, ends);
  return {closedOnExec(ends[0]), closedOnExec(ends[1])};
}

/// How many bytes its peer has not read yet of what was sent over a socket; none if it has gone.
int unreadBytes(int socket);

}  // namespace tervain::test
