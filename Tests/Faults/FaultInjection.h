#pragma once

#include <chrono>

namespace tervain::test {

/// What can be made to fail. Memory is what `new` and, where no sanitizer has it, `malloc` give.
enum class Call {
  accept,
  bind,
  exitWatch,
  fcntl,
  kill,
  listen,
  memory,
  open,
  pipe,
  poll,
  read,
  socket,
  spawn,
  thread,
  waitpid,
  write
};

struct Fault {
  Call call;
  int error;             ///< the errno value that it fails with
  int first = 1;         ///< which call fails, counted from now
  bool lasting = false;  ///< whether all later ones fail too
};

/// Lets calls of the whole process fail, except on threads that have called `spareThisThread`.
void inject(const Fault& fault);

/// Ends it. Returns whether a call has failed.
bool withdraw();

/// From now on the calling thread sees no faults.
void spareThisThread();

/// The longest time that a thread has asked to sleep since the latest `inject`. Threads that see
/// faults don't really sleep.
std::chrono::nanoseconds longestPause();

/// Counts a call. Returns whether it is to fail, with errno set then. For the functions that stand
/// in for the C library's.
bool fails(Call call);

}  // namespace tervain::test
