#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tervain {

/// Frames on their way to a host that may be slow to read. Nothing here blocks, and nothing is
/// dropped while the host can be written to.
///
/// What waits is bounded by whoever sends: with a frame `waiting()`, a command's output is best
/// left in its pipe, where it holds the command up.
class ExecOutput {
 public:
  /// `host` stays the caller's; it is non-blocking for as long as this lives.
  explicit ExecOutput(int host);
  ExecOutput(const ExecOutput&) = delete;
  ExecOutput& operator=(const ExecOutput&) = delete;
  ~ExecOutput();

  /// Sends a frame of output, or as much of it as goes through; the rest waits for `flush()`.
  void send(std::string_view tag, std::string_view bytes);

  /// The same for the frame that tells of the command's end.
  void sendExit(int code);

  /// Sends what the host takes now.
  void flush();

  /// Whether something waits for the host to read on. A host that can't be written to any more is
  /// not waited for.
  [[nodiscard]] bool waiting() const { return sent_ < frames_.size(); }

 private:
  int host_;
  int flags_;           // of the host's descriptor, as they are to be again
  std::string frames_;  // its memory serves frame after frame
  std::size_t sent_ = 0;
};

}  // namespace tervain
