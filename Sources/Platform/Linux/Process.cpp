#include "Platform/Process.h"

#include <semaphore.h>

#include <atomic>
#include <csignal>
#include <cstdlib>

#include "Platform/Linux/Input/Keyboard.h"

namespace tervain::Platform {

using namespace Linux;

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

void prepareForThreads() {}

void runMainLoop() {
  awaitEndSignal();
  X11::Keyboard::shared().restore();
  // Now as if nobody had caught it, so that our parent sees the true reason.
  std::signal(endSignal, SIG_DFL);
  std::raise(endSignal);
  std::abort();
}

}  // namespace tervain::Platform
