// The frames of a host against a running command, which counts the bytes of its input: it must end
// with what the frames say, and leave no process and no descriptor behind.
#include <sstream>

#include "Fuzz/Conversation.h"
#include "Fuzz/Fuzz.h"
#include "VMAgentCore/Base64.h"
#include "VMAgentCore/ExecSession.h"

using namespace tervain;

namespace {

/// It takes the arguments of a shell, "-lc COMMAND": it counts the lines and bytes of a file.
constexpr const char* counter = "/usr/bin/wc";

/// Ends the command whatever came before, even if it was stopped.
constexpr std::string_view ending = "\n{\"t\":\"sig\",\"n\":18}\n{\"t\":\"eof\"}\n";

/// What the frames come to.
struct Frames {
  std::size_t input = 0;  ///< bytes
  bool signals = false;
  bool fatal = false;  ///< whether one of them has a number that is none
};

Frames understood(LineSplitBuffer lines) {
  Frames frames;
  for (bool open = true; const auto line = lines.next();) {
    const Json frame = parseObject(*line).value_or(Json::object());
    const std::string* tag = stringMember(frame, "t");
    const std::string* text = stringMember(frame, "d");
    if (tag && *tag == "i" && open && text) {
      frames.input += decodeBase64(*text).value_or("").size();
    }
    open = open && !(tag && *tag == "eof");
    if (const auto n = tag && *tag == "sig" ? integerMember(frame, "n") : std::nullopt) {
      frames.signals = true;
      frames.fatal = frames.fatal || *n != static_cast<int>(*n);
    }
  }
  return frames;
}

/// Checks the frames of output. `wanted` is nothing where the command may not have ended by itself.
void check(const std::vector<Json>& frames, bool ends, std::optional<std::size_t> wanted) {
  std::string out;
  for (const Json& frame : frames) {
    const std::string tag = frame.value("t", "");
    if (tag == "x") {
      fuzz::require(&frame == &frames.back(), "a frame behind the last");
      fuzz::require(!wanted || frame.value("code", -1) == 0, "another exit code");
      continue;
    }
    const auto bytes = decodeBase64(frame.value("d", "?"));
    fuzz::require((tag == "o" || tag == "e") && bytes && !bytes->empty(), "no frame of output");
    out += tag == "o" ? *bytes : "";
  }
  fuzz::require(!ends || (!frames.empty() && frames.back().value("t", "") == "x"), "no exit frame");
  std::istringstream counts(out);
  std::size_t lines = 0;
  std::size_t bytes = 0;
  counts >> lines >> bytes;
  fuzz::require(!wanted || bytes == *wanted, "input was lost");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::LeakCheck leaks;
  const std::string_view input = fuzz::textOf(data, size);
  auto pieces = fuzz::pieces(input);
  LineSplitBuffer stream;
  for (const std::string_view piece : pieces) {
    stream.append(piece);
  }
  stream.append("\n");
  LineSplitBuffer buffered;
  if (!pieces.empty()) {
    buffered.append(pieces.front());
    pieces.erase(pieces.begin());
  }
  // A host that stays to the end, or one that goes as soon as it has said everything.
  const bool stays = !input.starts_with('~');
  if (stays) {
    pieces.push_back(ending);
  }
  const auto held = fuzz::converse(
      pieces,
      [&buffered](UniqueFD socket) {
        ExecSession(socket.get(), std::move(buffered), counter).run({{"command", "-"}});
      },
      stays ? fuzz::Then::listen : fuzz::Then::endStream);
  const Frames frames = understood(std::move(stream));
  fuzz::require(!stays || held.fatal.has_value() == frames.fatal, "fatal or not");
  const bool ends = stays && !held.fatal;
  check(held.lines, ends, ends && !frames.signals ? std::optional(frames.input) : std::nullopt);
  return 0;
}
