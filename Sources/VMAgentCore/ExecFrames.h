#pragma once

#include <string>
#include <string_view>

/// The frames that the agent sends during an exec, each with its line feed.
namespace tervain::ExecFrames {

/// Replaces `line` by a frame that carries output. `tag` is the type of the stream. The payload is
/// encoded straight into the line, whose memory serves frame after frame.
void output(std::string& line, std::string_view tag, std::string_view bytes);

/// The command has ended with this code.
std::string exit(int code);

/// The command could not be run, and why.
std::string error(std::string_view message);

}  // namespace tervain::ExecFrames
