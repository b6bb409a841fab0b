// The frames of a host against a running command, which counts the bytes of its input: it must end
// with what the frames say, and leave no process and no descriptor behind.
#include <sys/wait.h>

#include <cerrno>
#include <sstream>
#include <thread>

#include "Fuzz/Fuzz.h"
#include "Fuzz/HostEnd.h"
#include "VMAgentCore/Base64.h"
#include "VMAgentCore/ExecSession.h"

using namespace tervain;

namespace {

/// It takes the arguments of a shell, "-lc COMMAND": it counts the lines and bytes of a file.
constexpr const char* counter = "/usr/bin/wc";
const Json request{{"command", "-"}};

/// Ends the command whatever came before, even if it was stopped.
constexpr std::string_view ending = "\n{\"t\":\"sig\",\"n\":18}\n{\"t\":\"eof\"}\n";

/// What the frames come to.
struct Frames {
  std::string input;
  bool signals = false;  ///< whether there are any but the last
  bool fatal = false;    ///< whether one of them has a number that is none
};

Frames understood(std::string_view stream) {
  Frames frames;
  LineSplitBuffer lines;
  lines.append(stream);
  for (bool open = true; const auto line = lines.next();) {
    const auto frame = parseObject(*line);
    const std::string* tag = frame ? stringMember(*frame, "t") : nullptr;
    const std::string* text = frame ? stringMember(*frame, "d") : nullptr;
    if (!tag) {
      continue;
    }
    if (*tag == "i" && open && text) {
      frames.input += decodeBase64(*text).value_or("");
    }
    open = open && *tag != "eof";
    if (const auto number = *tag == "sig" ? integerMember(*frame, "n") : std::nullopt) {
      frames.signals = true;
      frames.fatal = *number != static_cast<int>(*number);
      if (frames.fatal) {
        return frames;
      }
    }
  }
  return frames;
}

struct Output {
  std::string out;
  int exits = 0;
  int code = -1;
};

Output readFrames(std::string_view heard) {
  Output output;
  LineSplitBuffer lines;
  lines.append(heard);
  while (const auto line = lines.next()) {
    const auto frame = parseObject(*line);
    fuzz::require(frame && output.exits == 0, "no frame, or one behind the last");
    const std::string tag = frame->value("t", "");
    fuzz::require(tag == "o" || tag == "e" || tag == "x", "a frame of no kind");
    if (tag == "x") {
      output.code = frame->value("code", -1);
      ++output.exits;
    } else {
      const auto bytes = decodeBase64(frame->value("d", "?"));
      fuzz::require(bytes && !bytes->empty(), "output that is not base64");
      output.out += tag == "o" ? *bytes : "";
    }
  }
  fuzz::require(lines.pendingBytes() == 0, "half a frame");
  return output;
}

void check(const Output& output, const Frames& frames) {
  fuzz::require(output.exits == 1, "no exit frame");
  if (frames.signals) {
    return;
  }
  std::istringstream counts(output.out);
  std::size_t lines = 0;
  std::size_t bytes = 0;
  counts >> lines >> bytes;
  fuzz::require(output.code == 0 && bytes == frames.input.size(), "input was lost");
}

std::string run(std::vector<std::string_view> pieces, fuzz::Then then, bool& fatal) {
  fuzz::HostConnection connection;
  LineSplitBuffer buffered;
  if (!pieces.empty()) {
    buffered.append(pieces.front());
    pieces.erase(pieces.begin());
  }
  std::thread agent([&] {
    const UniqueFD socket = std::move(connection.agent);
    try {
      ExecSession(socket.get(), std::move(buffered), counter).run(request);
    } catch (const fuzz::FatalError&) {
      fatal = true;
    }
  });
  const std::string heard = fuzz::talk(connection.host.get(), pieces, then);
  agent.join();
  return heard;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input = fuzz::textOf(data, size);
  auto pieces = fuzz::pieces(input);
  std::string stream = fuzz::joined(pieces);
  // A host that stays to the end, or one that goes as soon as it has said everything.
  const bool stays = !input.starts_with('~');
  if (stays) {
    pieces.push_back(ending);
  }
  const int before = fuzz::nextDescriptor();
  bool fatal = false;
  const std::string heard =
      run(std::move(pieces), stays ? fuzz::Then::listen : fuzz::Then::endStream, fatal);
  const Frames frames = understood(stream.append("\n"));
  const Output output = readFrames(heard);
  if (stays) {
    fuzz::require(fatal == frames.fatal, "fatal or not");
    if (!fatal) {
      check(output, frames);
    }
  }
  fuzz::require(waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD, "a process is left");
  fuzz::require(fuzz::nextDescriptor() == before, "a descriptor leaks");
  return 0;
}
