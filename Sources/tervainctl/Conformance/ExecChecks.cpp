// Commands: their streams, their end, and what the host can do to them.

#include <chrono>
#include <csignal>

#include "VMAgentClient/RemoteCommand.h"
#include "VMAgentCore/Deadline.h"
#include "tervainctl/Conformance/Check.h"
#include "tervainctl/Conformance/GuestCommand.h"
#include "tervainctl/Conformance/Patience.h"
#include "tervainctl/Conformance/Replies.h"

namespace tervain::ctl::conform {
namespace {

using Came = GuestCommand::Came;

const std::string eofFrame = "{\"t\":\"eof\"}\n";
/// A frame of output carries what one read of the agent has given.
constexpr std::size_t largestChunk = 65'536;

std::string inputFrame(std::string_view bytes) {
  return RemoteCommand::inputFrame(bytes) + "\n";
}

Json signalFrame(int number) {
  return {{"t", "sig"}, {"n", number}};
}

/// What must come of a command, in full.
struct Wanted {
  std::string out;
  std::string err;
  std::int64_t code = 0;
};

/// Reads on to the end, and compares all that has come with all that must.
bool expectCame(Findings& findings, GuestCommand& command, const Wanted& wanted,
                std::string_view what = "what came") {
  const bool ended = command.awaitEnd();
  const Came& came = command.came();
  const Json got{{"out", came.out}, {"err", came.err}, {"code", came.code.value_or(-1000)}};
  return findings.expect(came.stray.empty(), "no documented frame: " + came.stray) &&
         findings.expectEqual(what, got,
                              {{"out", wanted.out}, {"err", wanted.err}, {"code", wanted.code}}) &&
         findings.expect(ended, "the connection is not closed after the end");
}

void runsCommands(const Guest& guest, Findings& findings) {
  GuestCommand command(guest, "printf out; printf err >&2; exit 3");
  expectCame(findings, command, {"out", "err", 3});
}

void takesTheTextAsItIs(const Guest& guest, Findings& findings) {
  GuestCommand command(guest, "  printf '%s|' 'two  \"words\"' \"a\\\\b\" \\\n  'Grüße 😀/'");
  expectCame(findings, command, {"two  \"words\"|a\\b|Grüße 😀/|", ""});
}

/// And that one which is stopped has not ended.
void tellsHowTheyEnd(const Guest& guest, Findings& findings) {
  const struct {
    const char* command;
    std::int64_t code;
  } cases[]{{"true", 0},
            {"exit 255", 255},
            {"kill -9 $$", 128 + SIGKILL},
            {"kill -15 $$; sleep 60", 128 + SIGTERM},
            {"exec >/dev/null 2>&1; no-such-command-anywhere; exit 7", 7},
            {"exec >&- 2>&-; sleep 0.3; exit 5", 5},
            {"(while kill -CONT $$; do sleep 0.1; done) >&- 2>&- & kill -STOP $$; exit 6", 6}};
  for (const auto& [text, code] : cases) {
    GuestCommand command(guest, text);
    if (!expectCame(findings, command, {"", "", code}, text)) {
      return;
    }
  }
}

void refusesWhatIsNoCommand(const Guest& guest, Findings& findings) {
  for (const char* text : {R"({"op":"exec"})", R"({"op":"exec","command":42})"}) {
    GuestCommand command(guest, GuestCommand::Request{text});
    findings.expect(command.awaitEnd(), "the connection is not closed");
    findings.expectEqual(text, command.came().refusal.value_or(""),
                         "exec requires a \"command\" string");
    findings.expect(!command.came().code, "an exit frame after the error frame");
  }
}

void takesInput(const Guest& guest, Findings& findings) {
  GuestCommand together(guest, "cat",
                        inputFrame("hi ") + "{ \"d\": \"bG8K\", \"t\": \"i\" }\r\n" + eofFrame);
  if (!expectCame(findings, together, {"hi lo\n", ""})) {
    return;
  }
  GuestCommand apart(guest, "read line; echo \"got $line\"; read line || echo end");
  apart.sendLine(RemoteCommand::inputFrame("one\n"));
  if (findings.expect(apart.awaitLine(), "a line of input is not read while input is open")) {
    apart.sendBytes(eofFrame);
    expectCame(findings, apart, {"got one\nend\n", ""});
  }
}

void passesBytesUnchanged(const Guest& guest, Findings& findings) {
  std::string data(1'000'000, '\0');
  unsigned value = 1;
  for (char& byte : data) {
    value = value * 1'103'515'245U + 12'345U;
    byte = static_cast<char>(value >> 16U);
  }
  // More than pipes hold waits until it is read: nothing of it may get lost.
  GuestCommand command(guest, "sleep 0.3; cat");
  const std::size_t half = data.size() / 2;
  command.sendLine(RemoteCommand::inputFrame(std::string_view(data).substr(0, half)));
  command.sendLine(RemoteCommand::inputFrame(std::string_view(data).substr(half)));
  command.sendBytes(eofFrame);
  findings.expect(command.awaitEnd() && command.came().code == 0, "cat does not end");
  findings.expect(command.came().out == data, "of 1000000 bytes through cat, " +
                                                  std::to_string(command.came().out.size()) +
                                                  " came back, or others");
}

void streamsMuchOutput(const Guest& guest, Findings& findings) {
  constexpr std::size_t size = 4'194'304;
  GuestCommand command(guest, "dd if=/dev/zero bs=65536 count=64 2>/dev/null");
  findings.expect(command.awaitEnd() && command.came().code == 0, "dd does not end");
  const Came& came = command.came();
  findings.expect(came.out == std::string(size, '\0'),
                  "of 4 MiB, " + std::to_string(came.out.size()) + " bytes came, or others");
  findings.expect(came.chunks > 1 && came.largestChunk <= largestChunk,
                  "a frame of " + std::to_string(came.largestChunk) + " bytes");
}

void ignoresOtherFrames(const Guest& guest, Findings& findings) {
  const std::string frames =
      "\r\n\n{\"t\":\"resize\"}\n{\"t\":5}\nnoise\n[1]\n{\"op\":\"ping\"}\n{\"t\":\"i\"}\r\n"
      "{\"t\":\"i\",\"d\":\"!!\"}\n{\"t\":\"i\",\"d\":\"aGk\"}\n{\"t\":\"i\",\"d\":\"aGk=\"}x\n"
      "{\"t\":\"sig\"}\n"
      "{\"t\":\"sig\",\"n\":\"9\"}\n{\"t\":\"sig\",\"n\":9.5}\n{\"t\":\"sig\",\"n\":0}\n"
      "{\"t\":\"sig\",\"n\":999}\n";
  GuestCommand command(guest, "cat",
                       frames + inputFrame("hi") + eofFrame + eofFrame + inputFrame("late"));
  expectCame(findings, command, {"hi", ""});
}

void signalsTheWholeGroup(const Guest& guest, Findings& findings) {
  GuestCommand command(guest, "sleep 300 & echo $!; wait; sleep 300");
  if (!findings.expect(command.awaitLine(), "the command does not start")) {
    return;
  }
  const auto pid = pidIn(command.came());
  command.send(signalFrame(SIGTERM));
  expectCame(findings, command, {command.came().out, "", 128 + SIGTERM});
  findings.expect(eventually([&] { return !isRunning(guest, pid); }),
                  "its descendant " + std::to_string(pid) + " lives on");
}

void killsWhenTheHostGoes(const Guest& guest, Findings& findings) {
  for (const bool closes : {true, false}) {
    std::optional<GuestCommand> command(std::in_place, guest, "sleep 300 & echo $!; sleep 300");
    if (!findings.expect(command->awaitLine(), "the command does not start")) {
      return;
    }
    const auto pid = pidIn(command->came());
    if (closes) {
      command.reset();
    } else {
      command->endSending();
      findings.expect(command->awaitEnd() && !command->came().code,
                      "an end frame for a host that only reads on");
    }
    findings.expect(eventually([&] { return !isRunning(guest, pid); }),
                    "the descendant " + std::to_string(pid) + " of its command lives on");
  }
}

void endsInSpiteOfDescendants(const Guest& guest, Findings& findings) {
  // The agent waits two seconds, give or take its own rounds and a busy guest.
  constexpr std::chrono::milliseconds least{1500};
  constexpr std::chrono::seconds most{10};
  const auto start = Clock::now();  // before the end of the command, however late we hear of it
  GuestCommand command(guest, "sleep 60 & echo $!; exit 4");
  if (!findings.expect(command.awaitLine(), "the command does not start")) {
    return;
  }
  const auto pid = pidIn(command.came());
  const Cleanup cleanup(guest, "kill " + std::to_string(pid));
  expectCame(findings, command, {command.came().out, "", 4});
  const auto waited =
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
  findings.expect(waited >= least.count() && std::chrono::milliseconds(waited) <= most,
                  "the end came after " + std::to_string(waited) + " ms");
  findings.expect(isRunning(guest, pid), "a descendant in the background does not live on");
}

void isNotHeldUpByInput(const Guest& guest, Findings& findings) {
  // Longer than signals and hang-ups take in a busy guest, and much less than the command.
  constexpr std::chrono::seconds most{5};
  for (const bool leaves : {false, true}) {
    std::optional<GuestCommand> command(std::in_place, guest, "echo $$; exec sleep 300");
    if (!findings.expect(command->awaitLine(), "the command does not start")) {
      return;
    }
    const auto pid = pidIn(command->came());
    const auto start = Clock::now();
    for (int i = 0; i < 25; ++i) {
      command->sendLine(RemoteCommand::inputFrame(std::string(65'536, 'x')));
    }
    if (leaves) {
      command.reset();
      findings.expect(eventually([&] { return !isRunning(guest, pid); }),
                      "the command lives on when the host goes away");
    } else {
      command->send(signalFrame(SIGTERM));
      expectCame(findings, *command, {command->came().out, "", 128 + SIGTERM});
    }
    const auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    findings.expect(waited <= most, "its end came after " + std::to_string(waited.count()) + " ms");
  }
}

void connectsPipesAndNothingElse(const Guest& guest, Findings& findings) {
  GuestCommand command(guest,
                       "test -t 0 && echo terminal; test -t 1 && echo terminal; exec /bin/sh -c '"
                       "for n in 3 4 5 6 7 8 9; do (: >&$n) 2>/dev/null && echo $n; done; exit 0'");
  expectCame(findings, command, {"", ""});
}

void namesTheShellEventsFolder(const Guest& guest, Findings& findings) {
  const Came came = runToEnd(guest,
                             "printf '%s\\n' \"$TERVAIN_DULK_DISABLE\" \"$HOME\" "
                             "\"$TERVAIN_SHELL_SPOOL\" \"${TERVAIN_SHELL_CAPTURE-unset}\"");
  if (came.out.starts_with("1\n")) {
    findings.note("the agent shell is switched off");
    return;
  }
  const std::string home = came.out.substr(1, came.out.find('\n', 1) - 1);
  findings.expect(
      came.out.starts_with("\n" + home + "\n" + home + "/Library/Caches/tervain-dulk\n") &&
          !came.out.ends_with("\nunset\n"),
      "the environment has " + shown(came.out));
}

/// What a guest that runs no commands must say, and no more can be asked of it.
void tellsWhyNot(const Guest& guest, Findings& findings) {
  if (guest.execRefusal().empty()) {
    findings.note("they run");
    return;
  }
  findings.note("they don't, as the agent shell is missing");
  findings.expectEqual("the refusal", guest.execRefusal(),
                       "dulk is not installed in this guest (/usr/local/bin/dulk) — dulk is the "
                       "required agent shell in every virtualized environment (docs/DULK.md §7.5), "
                       "so the exec surface refuses to run without it. Rebuild the macOS VM base "
                       "image so provisioning installs it.");
}

Check running(const char* what, void (*run)(const Guest&, Findings&)) {
  return whereCommandsRun({"exec", what, run});
}

}  // namespace

std::vector<Check> execChecks() {
  return {
      {"exec", "commands run, or the agent says that its shell is missing", tellsWhyNot},
      {"exec", "a request without a command is told so", refusesWhatIsNoCommand},
      running("output, errors and exit status come apart", runsCommands),
      running("the shell gets the text byte for byte", takesTheTextAsItIs),
      running("exit statuses and ending signals are told", tellsHowTheyEnd),
      running("input and its end arrive, also with the request", takesInput),
      running("a megabyte passes in and out unchanged", passesBytesUnchanged),
      running("4 MiB of output come in frames of at most 64 KiB", streamsMuchOutput),
      running("frames that are none, or not complete, do nothing", ignoresOtherFrames),
      running("a signal reaches the whole process group", signalsTheWholeGroup),
      running("the group is killed when the host goes away", killsWhenTheHostGoes),
      running("a background process holds the end up two seconds", endsInSpiteOfDescendants),
      running("input that nobody reads holds nothing up", isNotHeldUpByInput),
      running("commands have three pipes, and no descriptor else", connectsPipesAndNothingElse),
      running("the agent shell is told where shell events go", namesTheShellEventsFolder),
  };
}

}  // namespace tervain::ctl::conform
