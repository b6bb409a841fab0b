#include "tervainctl/SignalPipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>

namespace tervain::ctl {
namespace {

constexpr std::array forwarded{SIGINT, SIGTERM, SIGHUP, SIGQUIT};

std::atomic<int> writeEnd{-1};

void handle(int number) {
  const int saved = errno;
  const char byte = static_cast<char>(number);
  // A full pipe loses the signal, but then there are thousands on their way already.
  [[maybe_unused]] const ssize_t written = write(writeEnd, &byte, 1);
  errno = saved;
}

void replaceHandlers(void (*expected)(int), void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  for (const int number : forwarded) {
    struct sigaction current {};
    sigaction(number, nullptr, &current);
    if (current.sa_handler == expected) {
      sigaction(number, &action, nullptr);
    }
  }
}

}  // namespace

SignalPipe::SignalPipe() {
  fcntl(pipe_.writeEnd.get(), F_SETFL, O_NONBLOCK);
  writeEnd = pipe_.writeEnd.get();
  replaceHandlers(SIG_DFL, handle);
}

SignalPipe::~SignalPipe() {
  replaceHandlers(handle, SIG_DFL);
  writeEnd = -1;
}

}  // namespace tervain::ctl
