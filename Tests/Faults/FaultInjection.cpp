#include "Faults/FaultInjection.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>

namespace tervain::test {
namespace {

std::atomic<const Fault*> current;
Fault latest;
std::atomic<int> calls;
std::atomic<bool> hasFailed;
std::atomic<std::int64_t> longest;
thread_local bool spared = false;

/// The function that is called by a name when this executable has none.
template <class Function>
Function* next(const char* name, Function* /*itself*/) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
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

}  // namespace tervain::test

// The C library declares these without saying so, and its parameters have reserved names.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name, cert-dcl50-cpp,
// readability-identifier-naming)
extern "C" {

using tervain::test::Call;
using tervain::test::fails;
using tervain::test::next;

int accept(int fd, sockaddr* address, socklen_t* length) {
  static auto* const real = next("accept", &accept);
  return fails(Call::accept) ? -1 : real(fd, address, length);
}

int bind(int fd, const sockaddr* address, socklen_t length) noexcept {
  static auto* const real = next("bind", &bind);
  return fails(Call::bind) ? -1 : real(fd, address, length);
}

int fcntl(int fd, int command, ...) {
  static auto* const real = next("fcntl", &fcntl);
  va_list arguments;
  va_start(arguments, command);
  const long argument = va_arg(arguments, long);
  va_end(arguments);
  return fails(Call::fcntl) ? -1 : real(fd, command, argument);
}

int kill(pid_t pid, int number) noexcept {
  static auto* const real = next("kill", &kill);
  return fails(Call::kill) ? -1 : real(pid, number);
}

int listen(int fd, int backlog) noexcept {
  static auto* const real = next("listen", &listen);
  return fails(Call::listen) ? -1 : real(fd, backlog);
}

int nanosleep(const timespec* duration, timespec* left) {
  static auto* const real = next("nanosleep", &nanosleep);
  if (tervain::test::spared) {
    return real(duration, left);
  }
  const std::int64_t asked = duration->tv_sec * 1'000'000'000 + duration->tv_nsec;
  tervain::test::longest = std::max(asked, tervain::test::longest.load());
  return 0;
}

int open(const char* path, int flags, ...) {
  static auto* const real = next("open", &open);
  va_list arguments;
  va_start(arguments, flags);
  const auto mode = va_arg(arguments, mode_t);
  va_end(arguments);
  return fails(Call::open) ? -1 : real(path, flags, mode);
}

int pipe2(int* ends, int flags) noexcept {
  static auto* const real = next("pipe2", &pipe2);
  return fails(Call::pipe) ? -1 : real(ends, flags);
}

int poll(pollfd* entries, nfds_t count, int timeout) {
  static auto* const real = next("poll", &poll);
  return fails(Call::poll) ? -1 : real(entries, count, timeout);
}

int posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const* argv, char* const* envp) {
  static auto* const real = next("posix_spawn", &posix_spawn);
  return fails(Call::spawn) ? errno : real(pid, path, actions, attributes, argv, envp);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) noexcept {
  static auto* const real = next("pthread_create", &pthread_create);
  return fails(Call::thread) ? errno : real(thread, attributes, body, argument);
}

ssize_t read(int fd, void* buffer, size_t size) {
  static auto* const real = next("read", &read);
  return fails(Call::read) ? -1 : real(fd, buffer, size);
}

int socket(int domain, int type, int protocol) noexcept {
  static auto* const real = next("socket", &socket);
  return fails(Call::socket) ? -1 : real(domain, type, protocol);
}

long syscall(long number, ...) noexcept {
  static auto* const real = next("syscall", &syscall);
  va_list arguments;
  va_start(arguments, number);
  long values[6];
  for (long& value : values) {
    value = va_arg(arguments, long);
  }
  va_end(arguments);
  return number == SYS_pidfd_open && fails(Call::exitWatch)
             ? -1
             : real(number, values[0], values[1], values[2], values[3], values[4], values[5]);
}

pid_t waitpid(pid_t pid, int* status, int options) {
  static auto* const real = next("waitpid", &waitpid);
  return fails(Call::waitpid) ? -1 : real(pid, status, options);
}

ssize_t write(int fd, const void* buffer, size_t size) {
  static auto* const real = next("write", &write);
  return fails(Call::write) ? -1 : real(fd, buffer, size);
}

}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name, cert-dcl50-cpp,
// readability-identifier-naming)
