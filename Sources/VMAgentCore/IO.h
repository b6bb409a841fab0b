#pragma once

#include <sys/types.h>

#include <cstddef>
#include <span>
#include <string_view>

namespace tervain {

/// How much one read of a socket or pipe takes at the most.
inline constexpr std::size_t readSize = 65'536;

/// `read` that goes on after a signal. Returns the byte count, 0 at the end, -1 with errno set.
ssize_t readSome(int fd, std::span<char> buffer);

/// Writes everything to a blocking descriptor, however long that takes. False when it can't.
bool writeAll(int fd, std::string_view data);

}  // namespace tervain
