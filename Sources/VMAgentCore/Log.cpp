#include "VMAgentCore/Log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/Environment.h"
#include "VMAgentCore/IO.h"
#include "VMAgentCore/UniqueFD.h"

namespace tervain {
namespace {

/// The file that standard error goes to.
class LogFile {
 public:
  explicit LogFile(std::string path) : path_(std::move(path)), old_(path_ + ".old") {}

  /// Gives an errno value, 0 when it worked.
  [[nodiscard]] int open() const {
    constexpr int mode = 0644;
    const UniqueFD file(::open(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC,
                               mode));  // NOLINT(*-vararg)
    return file && dup2(file.get(), STDERR_FILENO) >= 0 ? 0 : errno;
  }

  /// Begins the file anew if it is too large. Another thread that is at it is not waited for.
  void limit() {
    if (!isTooLarge() || busy_.test_and_set()) {
      return;
    }
    // It may have been begun anew meanwhile. Where that fails the log goes on in the file there is.
    if (isTooLarge() && std::rename(path_.c_str(), old_.c_str()) == 0) {
      static_cast<void>(open());
    }
    busy_.clear();
  }

 private:
  static bool isTooLarge() {
    struct stat info {};
    return fstat(STDERR_FILENO, &info) == 0 && info.st_size > maxLogFile;
  }

  const std::string path_;
  const std::string old_;
  std::atomic_flag busy_;
};

/// Never destroyed: other threads log until the very end.
LogFile* logFile = nullptr;

std::string expandHome(std::string_view path) {
  return path.starts_with("~/") ? homeDirectory().append(path.substr(1)) : std::string(path);
}

}  // namespace

void logToFile(std::string_view path) {
  const std::filesystem::path expanded = expandHome(path);
  std::error_code failed;  // opening the file tells
  std::filesystem::create_directories(expanded.parent_path(), failed);
  auto file = std::make_unique<LogFile>(expanded);
  if (const int error = file->open(); error != 0) {
    throw AgentError::posix("opening the log " + expanded.string(), error);
  }
  logFile = file.release();
  logFile->limit();
}

void writeLogLine(std::span<const std::string_view> parts) {
  char line[maxLogLine];  // NOLINT(*-member-init): written before it is read
  std::size_t length = 0;
  const auto add = [&](std::string_view text) {
    length += text.copy(line + length, maxLogLine - 1 - length);
  };
  add("[TervainVMAgent] ");
  for (const std::string_view part : parts) {
    add(part);
  }
  line[length++] = '\n';
  writeAll(STDERR_FILENO, {line, length});
  if (logFile) {
    logFile->limit();
  }
}

}  // namespace tervain
