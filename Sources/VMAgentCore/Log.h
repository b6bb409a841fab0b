#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <span>
#include <string_view>

namespace tervain {

/// An integer as a part of a log line.
class Decimal {
 public:
  explicit Decimal(std::int64_t value)
      : length_(static_cast<std::size_t>(
            std::to_chars(std::begin(digits_), std::end(digits_), value).ptr - digits_)) {}

  // NOLINTNEXTLINE(google-explicit-constructor): it stands where a text would
  operator std::string_view() const { return {digits_, length_}; }

 private:
  char digits_[std::numeric_limits<std::int64_t>::digits10 + 2]{};  // and a sign
  std::size_t length_;
};

/// How long a log line gets, in bytes: what a pipe takes as one piece on every system. The rest of
/// a longer one is dropped.
inline constexpr std::size_t maxLogLine = 512;

/// How large a log file gets, in bytes, before another is begun: weeks of hosts that come and go.
inline constexpr std::int64_t maxLogFile = 1'048'576;

/// Sends standard error to a file from now on, that of libraries included. The file is appended to;
/// it is made, with its folder, where there is none. "~/" at the beginning of the path is the
/// user's home directory. When a line has made the file larger than `maxLogFile`, it is renamed to
/// PATH.old, in place of an older one, and begun anew. To be called once, before any thread is
/// started. Throws AgentError, with standard error as it was.
void logToFile(std::string_view path);

/// Writes "[TervainVMAgent] ", the parts and a line feed to standard error, as a single write so
/// that lines of different threads never mix. Takes no memory: it has to work when there is none.
void writeLogLine(std::span<const std::string_view> parts);

/// The same for parts that are texts or `Decimal`s.
template <class... Parts>
void agentLog(const Parts&... parts) {
  const std::string_view views[] = {parts...};
  writeLogLine(views);
}

}  // namespace tervain
