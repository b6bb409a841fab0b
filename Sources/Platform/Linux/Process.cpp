#include "Platform/Process.h"

#include <systemd/sd-daemon.h>
#include <unistd.h>

namespace tervain::Platform {

std::optional<UniqueFD> inheritedListener() {
  const int count = sd_listen_fds(/*unset_environment=*/1);
  const int fd = SD_LISTEN_FDS_START;
  if (count < 1 || sd_is_socket(fd, AF_UNSPEC, SOCK_STREAM, /*listening=*/1) <= 0) {
    return std::nullopt;
  }
  return UniqueFD(fd);
}

void runMainLoop() {
  for (;;) {
    pause();
  }
}

}  // namespace tervain::Platform
