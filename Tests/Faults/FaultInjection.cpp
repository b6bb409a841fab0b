#include "Faults/FaultInjection.h"

#include <dlfcn.h>
#include <sys/syscall.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <ctime>

namespace tervain::test {
namespace {

std::atomic<const Fault*> current;
Fault latest;
std::atomic<int> calls;
std::atomic<bool> hasFailed;
std::atomic<std::int64_t> longest;
thread_local bool spared = false;

bool failsWatching(long systemCall) {
  return systemCall == SYS_pidfd_open && fails(Call::exitWatch);
}

/// Notes a pause. Whether it is not to be made.
bool skips(const timespec& pause) {
  const std::int64_t asked = pause.tv_sec * 1'000'000'000 + pause.tv_nsec;
  longest = std::max(spared ? 0 : asked, longest.load());
  return !spared;
}

}  // namespace

void inject(const Fault& fault) {
  latest = fault;
  calls = 0;
  hasFailed = false;
  longest = 0;
  current = &latest;
}

bool withdraw() {
  current = nullptr;
  return hasFailed;
}

void spareThisThread() {
  spared = true;
}

std::chrono::nanoseconds longestPause() {
  return std::chrono::nanoseconds(longest);
}

bool fails(Call call) {
  const Fault* const fault = spared ? nullptr : current.load();
  if (!fault || fault->call != call) {
    return false;
  }
  const int number = ++calls;
  if (number != fault->first && (number < fault->first || !fault->lasting)) {
    return false;
  }
  hasFailed = true;
  errno = fault->error;
  return true;
}

// What stands in for functions of the C library, under their names. Whatever those take fits the
// registers that integers are passed in, so that one type serves for all.
// NOLINTBEGIN(cppcoreguidelines-macro-usage, bugprone-macro-parentheses)
#define STAND_IN(name, isFailing, failure)                                          \
  extern "C" long standInFor_##name(long a, long b, long c, long d, long e, long f, \
                                    long g) __asm__(#name);                         \
  long standInFor_##name(long a, long b, long c, long d, long e, long f, long g) {  \
    static auto* const real =                                                       \
        reinterpret_cast<decltype(&standInFor_##name)>(dlsym(RTLD_NEXT, #name));    \
    return isFailing ? failure : real(a, b, c, d, e, f, g);                         \
  }

STAND_IN(accept, fails(Call::accept), -1)
STAND_IN(bind, fails(Call::bind), -1)
STAND_IN(fcntl, fails(Call::fcntl), -1)
STAND_IN(kill, fails(Call::kill), -1)
STAND_IN(listen, fails(Call::listen), -1)
STAND_IN(nanosleep, skips(*reinterpret_cast<const timespec*>(a)), 0)
STAND_IN(open, fails(Call::open), -1)
STAND_IN(pipe2, fails(Call::pipe), -1)
STAND_IN(poll, fails(Call::poll), -1)
STAND_IN(posix_spawn, fails(Call::spawn), errno)
STAND_IN(pthread_create, fails(Call::thread), errno)
STAND_IN(read, fails(Call::read), -1)
STAND_IN(socket, fails(Call::socket), -1)
STAND_IN(syscall, failsWatching(a), -1)
STAND_IN(waitpid, fails(Call::waitpid), -1)
STAND_IN(write, fails(Call::write), -1)
// NOLINTEND(cppcoreguidelines-macro-usage, bugprone-macro-parentheses)

}  // namespace tervain::test
