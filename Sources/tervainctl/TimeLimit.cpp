#include "tervainctl/TimeLimit.h"

#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <cstdio>

#include "tervainctl/CommandTable/CommandTable.h"
#include "tervainctl/Terminal.h"

namespace tervain::ctl {
namespace {

// Written before the signal can arrive, and read by its handler.
std::array<char, 80> message{};
std::size_t messageSize = 0;

void end(int /*number*/) {
  RawTerminal::restore();
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, message.data(), messageSize);
  _exit(timedOut);
}

}  // namespace

void endAfter(double seconds) {
  itimerval timer{};
  setitimer(ITIMER_REAL, &timer, nullptr);
  if (std::isinf(seconds)) {
    return;
  }
  const int length = std::snprintf(message.data(), message.size(),  // NOLINT(*-vararg)
                                   "tervainctl: not done within %g seconds\n", seconds);
  messageSize = static_cast<std::size_t>(std::max(length, 0));
  struct sigaction action {};
  action.sa_handler = end;
  sigaction(SIGALRM, &action, nullptr);
  sigset_t alarm;
  sigemptyset(&alarm);
  sigaddset(&alarm, SIGALRM);
  pthread_sigmask(SIG_UNBLOCK, &alarm, nullptr);

  constexpr double longest = 1e8;  // seconds; more is not a timer's on every system
  constexpr double shortest = 1e-6;
  constexpr double microseconds = 1e6;
  const double rounded = std::clamp(seconds, shortest, longest);
  timer.it_value.tv_sec = static_cast<decltype(timer.it_value.tv_sec)>(rounded);
  timer.it_value.tv_usec =
      static_cast<decltype(timer.it_value.tv_usec)>((rounded - std::floor(rounded)) * microseconds);
  setitimer(ITIMER_REAL, &timer, nullptr);
}

}  // namespace tervain::ctl
