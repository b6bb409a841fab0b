#include "Support/Processes.h"

#include <libproc.h>
#include <sys/sysctl.h>

#include <algorithm>
#include <array>
#include <optional>
#include <vector>

namespace tervain::test {
namespace {

proc_taskinfo taskOf(pid_t process) {
  proc_taskinfo info{};
  proc_pidinfo(process, PROC_PIDTASKINFO, 0, &info, sizeof info);
  return info;
}

/// The entries of the process table of a kind, zombies among them.
std::vector<kinfo_proc> processes(int kind, int which) {
  std::array<int, 4> name{CTL_KERN, KERN_PROC, kind, which};
  std::size_t size = 0;
  sysctl(name.data(), name.size(), nullptr, &size, nullptr, 0);
  std::vector<kinfo_proc> entries(size / sizeof(kinfo_proc) + 64);  // more may start meanwhile
  size = entries.size() * sizeof(kinfo_proc);
  if (sysctl(name.data(), name.size(), entries.data(), &size, nullptr, 0) != 0) {
    size = 0;
  }
  entries.resize(size / sizeof(kinfo_proc));
  return entries;
}

std::size_t descriptorsOf(pid_t process) {
  std::vector<proc_fdinfo> entries(4096);
  const int size = proc_pidinfo(process, PROC_PIDLISTFDS, 0, entries.data(),
                                static_cast<int>(entries.size() * sizeof(proc_fdinfo)));
  return static_cast<std::size_t>(std::max(size, 0)) / sizeof(proc_fdinfo);
}

}  // namespace

std::vector<pid_t> childrenOf(pid_t process) {
  std::vector<pid_t> children;
  for (const kinfo_proc& entry : processes(KERN_PROC_ALL, 0)) {
    if (entry.kp_eproc.e_ppid == process) {
      children.push_back(entry.kp_proc.p_pid);
    }
  }
  return children;
}

Footprint footprintOf(pid_t process) {
  return {descriptorsOf(process), static_cast<std::size_t>(taskOf(process).pti_threadnum),
          childrenOf(process).size()};
}

std::size_t residentBytesOf(pid_t process) {
  return taskOf(process).pti_resident_size;
}

std::size_t peakBytesOf(pid_t process) {
  rusage_info_v4 info{};
  proc_pid_rusage(process, RUSAGE_INFO_V4, reinterpret_cast<rusage_info_t*>(&info));
  return info.ri_lifetime_max_phys_footprint;
}

bool isRunning(pid_t process) {
  const auto found = processes(KERN_PROC_PID, process);
  return !found.empty() && found.front().kp_proc.p_stat != SZOMB;
}

}  // namespace tervain::test
