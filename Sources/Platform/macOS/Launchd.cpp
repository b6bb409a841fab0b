#include "Platform/macOS/Launchd.h"

#include <charconv>

namespace tervain::Platform {
namespace {

std::string_view trimmed(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(" \t");
  const std::size_t end = text.find_last_not_of(" \t\r");
  return begin == std::string_view::npos ? std::string_view() : text.substr(begin, end - begin + 1);
}

/// What stands behind a name and a separator at the beginning of a line.
std::optional<std::string_view> valueOf(std::string_view line, std::string_view name) {
  return line.starts_with(name) ? std::optional(line.substr(name.size())) : std::nullopt;
}

std::optional<pid_t> numberIn(std::string_view digits) {
  pid_t number = 0;
  const auto [end, failed] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return failed == std::errc() ? std::optional(number) : std::nullopt;
}

}  // namespace

LaunchdJob parseLaunchdJob(std::string_view printed) {
  LaunchdJob job;
  bool inEnvironment = false;
  int depth = 0;  // the job's own lines are in one pair of braces
  while (!printed.empty()) {
    const std::size_t end = printed.find('\n');
    const std::string_view line = trimmed(printed.substr(0, end));
    printed.remove_prefix(end == std::string_view::npos ? printed.size() : end + 1);
    if (const std::size_t arrow = line.find(" => ");
        inEnvironment && arrow != std::string_view::npos) {
      // Its own words, which come last, are about what it inherits.
      job.environment.insert_or_assign(std::string(line.substr(0, arrow)),
                                       std::string(line.substr(arrow + 4)));
    } else if (line.ends_with('{')) {
      ++depth;
      inEnvironment = line.ends_with("environment = {");
    } else if (line == "}") {
      --depth;
      inEnvironment = false;
    } else if (depth != 1) {
      continue;
    } else if (const auto state = valueOf(line, "state = ")) {
      job.state = *state;
    } else if (const auto code = valueOf(line, "last exit code = ")) {
      job.lastExit = *code;
    } else if (const auto pid = valueOf(line, "pid = ")) {
      job.pid = numberIn(*pid);
    }
  }
  return job;
}

}  // namespace tervain::Platform
