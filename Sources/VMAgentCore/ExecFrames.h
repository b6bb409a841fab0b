#pragma once

#include <optional>
#include <string>
#include <string_view>

/// The frames of an exec, as lines. Those that are made here end with their line feed.
namespace tervain::ExecFrames {

/// Appends a frame that carries bytes of a stream: a command's output, or its input. `tag` is the
/// type of the stream. The payload is encoded straight into `frames`.
void appendBytes(std::string& frames, std::string_view tag, std::string_view bytes);

/// The command has ended with this code.
std::string exit(int code);

/// The command could not be run, and why.
std::string error(std::string_view message);

struct Payload {
  std::string_view tag;  ///< lies in the line
  std::string bytes;
};

/// Reads a frame of bytes whose text is what both sides write, {"t":TAG,"d":BASE64} without a
/// space, several times as fast as JSON is read. Nothing for any other line, which may be a frame
/// too.
std::optional<Payload> payload(std::string_view line);

}  // namespace tervain::ExecFrames
