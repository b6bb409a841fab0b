#include "Platform/Process.h"

#include <semaphore.h>
#include <systemd/sd-daemon.h>

#include <atomic>
#include <csignal>
#include <cstdlib>

#include "Platform/Linux/Keyboard.h"

namespace tervain::Platform {
namespace {

sem_t endRequested;
std::atomic<int> endSignal;

void requestEnd(int signal) {
  endSignal = signal;
  sem_post(&endRequested);
}

/// Lets the signals that ask a process to end do so in an orderly way, but for those that our
/// parent had us ignore.
void awaitEndSignal() {
  sem_init(&endRequested, /*pshared=*/0, 0);
  for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
    if (std::signal(signal, requestEnd) == SIG_IGN) {
      std::signal(signal, SIG_IGN);
    }
  }
  while (sem_wait(&endRequested) != 0) {
  }
}

}  // namespace

std::optional<UniqueFD> inheritedListener() {
  const int count = sd_listen_fds(/*unset_environment=*/1);
  const int fd = SD_LISTEN_FDS_START;
  if (count < 1 || sd_is_socket(fd, AF_UNSPEC, SOCK_STREAM, /*listening=*/1) <= 0) {
    return std::nullopt;
  }
  return UniqueFD(fd);
}

void runMainLoop() {
  awaitEndSignal();
  X11::Keyboard::shared().restore();
  // Now as if nobody had caught it, so that our parent sees the true reason.
  std::signal(endSignal, SIG_DFL);
  std::raise(endSignal);
  std::abort();
}

}  // namespace tervain::Platform
