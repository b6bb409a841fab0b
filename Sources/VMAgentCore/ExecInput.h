#pragma once

#include <poll.h>

#include <cstddef>
#include <deque>
#include <string>

#include "VMAgentCore/UniqueFD.h"

namespace tervain {

/// A command's standard input. What the host has sent and the command has not read yet waits here,
/// and goes into the command's pipe in order, as the pipe takes it. Nothing here blocks.
class ExecInput {
 public:
  /// How many bytes may wait before no more should be asked for. Much more than a socket and a pipe
  /// hold, so that a command which pauses holds up neither its host nor the signals behind its
  /// input; little enough for many sessions at once.
  static constexpr std::size_t limit = 4'194'304;

  /// Takes over the pipe's writing end, and gives it up at once if it can't be made non-blocking:
  /// a command without input is better than a session that hangs.
  explicit ExecInput(UniqueFD pipe);

  /// Adds bytes behind all others. After the end they are dropped.
  void add(std::string bytes);

  /// The end of the input, behind all that waits: the pipe is closed when that has been written.
  void end();

  /// Writes what the pipe takes now.
  void flush();

  /// Drops what waits, and closes the pipe.
  void close();

  /// Whether as much waits as should.
  [[nodiscard]] bool full() const { return size_ >= limit; }

  /// What to poll for before the next `flush()`: room in the pipe, or nothing at all.
  [[nodiscard]] pollfd pollEntry() const;

 private:
  UniqueFD pipe_;
  std::deque<std::string> chunks_;  // none is empty
  std::size_t written_ = 0;         // of the first chunk
  std::size_t size_ = 0;            // what is left of all chunks
  bool ended_ = false;
  bool widened_ = false;  // done when the pipe was full once: most commands take little input
};

}  // namespace tervain
