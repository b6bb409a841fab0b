#pragma once

#include <sys/types.h>

#include <cstddef>
#include <iosfwd>
#include <vector>

/// What the kernel tells of processes; each port's folder asks its own.
namespace tervain::test {

/// What must not pile up. Children include the dead that nobody has reaped.
struct Footprint {
  std::size_t descriptors;
  std::size_t threads;
  std::size_t children;
  /// Whether none of it is more than in `other`.
  [[nodiscard]] bool within(const Footprint& other) const {
    return descriptors <= other.descriptors && threads <= other.threads &&
           children <= other.children;
  }
};

Footprint footprintOf(pid_t process);

/// The numbers of a process's children.
std::vector<pid_t> childrenOf(pid_t process);

void PrintTo(const Footprint& footprint, std::ostream* out);

/// Resident memory in bytes.
std::size_t residentBytesOf(pid_t process);

/// The most that it ever was.
std::size_t peakBytesOf(pid_t process);

/// Whether a process runs. One that has ended but has not been waited for does not.
bool isRunning(pid_t process);

}  // namespace tervain::test
