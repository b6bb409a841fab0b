// The conformance run as a command.

#include <poll.h>

#include <chrono>

#include "tervainctl/Commands.h"
#include "tervainctl/Conformance/Run.h"
#include "tervainctl/SignalPipe.h"

namespace tervain::ctl {

int checkConformance(const Call& call) {
  const conform::Guest guest(agentOf(call.arguments),
                             {.editor = textArgument(call, "app").value_or(""),
                              .other = textArgument(call, "other").value_or("")});
  // Whoever is asked to end finishes the row first: what a check has made in the guest goes with
  // it. The same holds when the time is over.
  const SignalPipe signals;
  const std::chrono::duration<double> limit(limitOf(call.command, call.arguments));
  const auto start = Clock::now();
  const auto inTime = [&] { return Clock::now() - start < limit; };
  const auto goesOn = [&] {
    pollfd entry{signals.readEnd(), POLLIN, 0};
    return poll(&entry, 1, 0) == 0 && inTime();
  };
  const auto checks = conform::allChecks(!given(call, "noDesktop"));
  const bool held = conform::run(guest, checks, {print, goesOn});
  return !inTime() ? timedOut : held ? 0 : failed;
}

}  // namespace tervain::ctl
