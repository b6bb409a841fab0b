#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// The spool directory in which the agent shell leaves its event files.
namespace tervain::ShellSpool {

/// Tells the agent shell where to spool.
inline constexpr std::string_view spoolEnvKey = "TERVAIN_SHELL_SPOOL";
/// Selects the agent shell's capture mode.
inline constexpr std::string_view captureEnvKey = "TERVAIN_SHELL_CAPTURE";
/// How many bytes one drain takes unless told otherwise.
inline constexpr std::int64_t defaultCap = 4'194'304;
/// How many it takes at the most, whatever it is told (64 MiB). What it takes is held in memory,
/// and goes to the host as one line.
inline constexpr std::int64_t maxCap = 67'108'864;

/// The spool directory under the user's home directory.
std::string defaultDir();

struct DrainResult {
  std::string data;                       ///< the taken files' contents, one behind the other
  std::int64_t files = 0;                 ///< how many files were taken
  bool truncated = false;                 ///< whether a file was left behind for the budget
  std::vector<std::string> drainedPaths;  ///< the taken files, in the order of `data`

  bool operator==(const DrainResult&) const = default;
};

/// Collects the ".jsonl" files of `dir` in name order, at most `maxBytes` bytes of them, and no
/// more than `maxCap`. A file that does not fit is left behind, and smaller ones after it may still
/// be taken. What can't be read is passed over, and nothing is deleted. Never fails.
DrainResult drain(const std::string& dir, std::int64_t maxBytes);

}  // namespace tervain::ShellSpool
