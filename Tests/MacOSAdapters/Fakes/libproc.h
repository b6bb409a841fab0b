#pragma once

// As much of libproc as the macOS port uses.

#include <cstdint>

#include "MacOSAdapters/FakeSystem.h"

constexpr int PROC_PIDTBSDINFO = 3;
struct proc_bsdinfo {
  std::uint64_t pbi_start_tvsec;
  std::uint64_t pbi_start_tvusec;
};
/// There are only processes with positive numbers.
inline int proc_pidinfo(int pid, int /*flavor*/, std::uint64_t /*arg*/, void* buffer, int size) {
  static_cast<proc_bsdinfo*>(buffer)->pbi_start_tvsec = tervain::Fake::system().processStart;
  return pid > 0 ? size : 0;
}
