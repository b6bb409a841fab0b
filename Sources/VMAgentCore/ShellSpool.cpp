#include "VMAgentCore/ShellSpool.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <optional>

#include "VMAgentCore/Environment.h"
#include "VMAgentCore/IO.h"
#include "VMAgentCore/UniqueFD.h"

namespace fs = std::filesystem;

namespace tervain::ShellSpool {
namespace {

/// Nothing when the folder can't be read to its end. (The library's iterator over folders ends the
/// process when it gets no memory.)
std::vector<std::string> sortedNames(const std::string& dir) {
  std::vector<std::string> names;
  if (dir.find('\0') != std::string::npos) {
    return names;  // no folder has such a name, but one may have its beginning
  }
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(dir.c_str()), closedir);
  if (!folder) {
    return names;
  }
  errno = 0;
  while (const dirent* const entry = readdir(folder.get())) {
    names.emplace_back(entry->d_name);
    errno = 0;
  }
  if (errno != 0) {
    return {};
  }
  std::sort(names.begin(), names.end());
  return names;
}

enum class Taken { yes, tooLarge, unreadable };

/// Appends a file's content to `data` if it has at most `room` bytes. Nothing larger is read, and
/// nothing but a regular file is waited for.
Taken appendFile(const std::string& path, std::int64_t room, std::string& data) {
  const UniqueFD file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat info {};
  if (!file || fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
    return Taken::unreadable;
  }
  if (info.st_size > room) {
    return Taken::tooLarge;
  }
  // One byte more than it should have shows a file that is just being written to.
  const std::size_t before = data.size();
  const auto limit = static_cast<std::size_t>(room);
  std::size_t wanted = static_cast<std::size_t>(info.st_size) + 1;
  std::size_t length = 0;
  for (;;) {
    data.resize(before + wanted);
    const ssize_t n = readSome(file.get(), std::span(data).subspan(before + length));
    if (n > 0) {
      length += static_cast<std::size_t>(n);
    }
    if (n <= 0 || length > limit) {
      const Taken taken = n < 0 ? Taken::unreadable : n > 0 ? Taken::tooLarge : Taken::yes;
      data.resize(before + (taken == Taken::yes ? length : 0));
      return taken;
    }
    if (length == wanted) {
      wanted += std::min(readSize, limit + 1 - length);
    }
  }
}

}  // namespace

std::string defaultDir() {
  return fs::path(homeDirectory()) / "Library/Caches/tervain-dulk";
}

DrainResult drain(const std::string& dir, std::int64_t maxBytes) {
  maxBytes = std::min(maxBytes, maxCap);
  DrainResult result;
  for (const std::string& name : sortedNames(dir)) {
    if (!name.ends_with(".jsonl")) {
      continue;
    }
    const auto gathered = static_cast<std::int64_t>(result.data.size());
    if (gathered >= maxBytes) {
      result.truncated = true;
      break;
    }
    const std::string path = fs::path(dir) / name;
    switch (appendFile(path, maxBytes - gathered, result.data)) {
      case Taken::yes:
        ++result.files;
        result.drainedPaths.push_back(path);
        break;
      case Taken::tooLarge:
        result.truncated = true;
        break;
      case Taken::unreadable:
        break;
    }
  }
  return result;
}

}  // namespace tervain::ShellSpool
