#include "Support/Sockets.h"

#include <sys/socket.h>

namespace tervain::test {

int unreadBytes(int socket) {
  int bytes = 0;
  socklen_t size = sizeof bytes;
  return getsockopt(socket, SOL_SOCKET, SO_NWRITE, &bytes, &size) == 0 ? bytes : 0;
}

}  // namespace tervain::test
