// The frames of a host against a running command. Behind more input than pipes and sockets hold
// they must come to what they say: input comes back from `cat` byte for byte however late either
// end reads, signals act on a command that never reads, and nothing outlives a host that leaves.
#include <sys/prctl.h>
#include <sys/wait.h>

#include <csignal>

#include "Fuzz/Conversation.h"
#include "Fuzz/Fuzz.h"
#include "VMAgentCore/Base64/Base64.h"
#include "VMAgentCore/ExecSession.h"

using namespace tervain;

namespace {

constexpr const char* shell = "/bin/sh";

/// Ends the command whatever came before, even if it was stopped or does not read.
const std::string ending = "\n{\"t\":\"sig\",\"n\":18}\n{\"t\":\"eof\"}\n";
const std::string kill9 = "\n{\"t\":\"sig\",\"n\":9}\n";

/// Much more than anything that is to happen at once takes, and less than a second for each piece.
constexpr std::chrono::seconds atOnce{5};

/// A frame of input that one read of the agent takes in, and how often it is sent first: more than
/// the pipe and the connection hold together, and less than the agent keeps.
const std::string ballast = std::string(40'000, 'b');
constexpr std::size_t ballastFrames = 12;

/// What the first character of an input chooses.
struct Scene {
  bool deaf = false;  ///< the command does not read, nor end by itself
  fuzz::Then then = fuzz::Then::listen;
};

Scene sceneOf(std::string_view input) {
  using fuzz::Then;
  switch (input.empty() ? ' ' : input.front()) {
    case '~':
      return {.then = Then::endStream};
    case '|':
      return {.deaf = true, .then = Then::endStreamWhenHeard};
    case '{':
      return {.deaf = true};
    case 'z':
      return {.then = Then::listenLate};
    default:
      return {};
  }
}

/// What the frames come to.
struct Frames {
  std::string input;
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
      frames.input += decodeBase64(*text).value_or("");
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
void check(const std::vector<Json>& frames, bool ends, const std::optional<std::string>& wanted) {
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
  fuzz::require(!wanted || out == *wanted, "what came back is not what was sent");
}

/// Reaps what the command has left behind, which has become our child.
bool nothingIsLeft() {
  const auto noChildren = [] {
    pid_t reaped = 0;
    do {
      reaped = waitpid(-1, nullptr, WNOHANG);
    } while (reaped > 0);
    return reaped < 0;
  };
  return test::eventually(noChildren, atOnce, std::chrono::microseconds(200));
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  const fuzz::LeakCheck leaks;
  const std::string_view input = fuzz::textOf(data, size);
  const Scene scene = sceneOf(input);
  const bool leaves =
      scene.then == fuzz::Then::endStream || scene.then == fuzz::Then::endStreamWhenHeard;
  auto pieces = fuzz::pieces(input);
  LineSplitBuffer buffered;
  LineSplitBuffer stream;
  if (!pieces.empty()) {
    buffered.append(pieces.front());
    stream.append(pieces.front());
    pieces.erase(pieces.begin());
  }
  // The ballast goes between what came with the request and the rest.
  const std::string filler = "\n" + test::stdinFrame(ballast);
  pieces.insert(pieces.begin(), ballastFrames, filler);
  for (const std::string_view piece : pieces) {
    stream.append(piece);
  }
  stream.append("\n");
  const Frames frames = understood(std::move(stream));
  if (!leaves) {
    pieces.push_back(scene.deaf ? kill9 : ending);
  }

  const std::string command = scene.deaf ? "sleep 60 & echo; sleep 60" : "sleep 0.01; exec cat";
  const auto start = Clock::now();
  const auto held = fuzz::converse(
      pieces,
      [&](UniqueFD socket) {
        ExecSession(socket.get(), std::move(buffered), shell).run({{"command", command}});
      },
      scene.then);
  fuzz::require(nothingIsLeft(), "a process outlives its host");
  fuzz::require(Clock::now() - start < atOnce, "a signal or the host's leaving came late");
  fuzz::require(leaves || held.fatal.has_value() == frames.fatal, "fatal or not");
  const bool ends = !leaves && !held.fatal;
  const bool byItself = ends && !scene.deaf && !frames.signals;
  check(held.lines, ends, byItself ? std::optional(frames.input) : std::nullopt);
  return 0;
}
