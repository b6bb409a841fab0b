#include "Support/Sockets.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>

namespace tervain::test {

int unreadBytes(int socket) {
  int bytes = 0;
  return ioctl(socket, SIOCOUTQ, &bytes) == 0 ? bytes : 0;
}

}  // namespace tervain::test
