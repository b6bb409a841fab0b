#pragma once

#include <poll.h>
#include <sys/types.h>

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "VMAgentCore/Deadline.h"

namespace tervain {

/// How much one read of a socket or pipe takes at the most.
inline constexpr std::size_t readSize = 65'536;

/// `read` that goes on after a signal. Returns the byte count, 0 at the end, -1 with errno set.
ssize_t readSome(int fd, std::span<char> buffer);

/// Writes everything to a blocking descriptor, however long that takes. False when it can't.
bool writeAll(int fd, std::string_view data);

/// Writes what a non-blocking descriptor takes at once, off the front of `data`. False when it will
/// never take any more.
[[nodiscard]] bool writeSome(int fd, std::string_view& data);

/// Polls without a time limit until an entry has an event, whatever signals arrive meanwhile.
/// Throws AgentError.
void waitForEvents(std::span<pollfd> entries);

/// The same until the deadline. False when it has passed without an event.
bool waitForEvents(std::span<pollfd> entries, Deadline deadline);

/// Reads a pipe or socket to its end, or as far as can be read, and appends what comes to `text`
/// until that holds `most` bytes. False when the end has not come by the deadline.
bool readToEnd(int fd, std::string& text, std::size_t most, Deadline deadline);

/// Opens /dev/null on whichever of the descriptors 0, 1 and 2 are closed: one opened later must
/// never land there, or what is meant for a log or a terminal would go to the peer.
void occupyStandardDescriptors();

}  // namespace tervain
