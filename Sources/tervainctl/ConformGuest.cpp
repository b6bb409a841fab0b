#include "tervainctl/ConformGuest.h"

#include <algorithm>
#include <cerrno>
#include <charconv>

#include "VMAgentClient/RemoteCommand.h"
#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/AgentWire.h"
#include "VMAgentCore/Base64.h"

namespace tervain::ctl::conform {
namespace {

namespace wire = AgentWire::Exec;

/// How much of a value is shown, in bytes: enough for any of the agent's own texts.
constexpr std::size_t shownBytes = 400;

const char* readinessKey(Grant grant) {
  switch (grant) {
    case Grant::accessibility:
      return "accessibility";
    case Grant::inputSynthesis:
      return "postEvent";
    default:
      return "screenRecording";
  }
}

std::string_view refusalWithout(Grant grant) {
  switch (grant) {
    case Grant::accessibility:
      return "Accessibility (kTCCServiceAccessibility) is not granted to the agent — re-run "
             "provisioning";
    case Grant::inputSynthesis:
      return "input synthesis (kTCCServicePostEvent) is not granted to the agent — re-run "
             "provisioning";
    default:
      return "Screen Recording (kTCCServiceScreenCapture) is not granted to the agent — re-run "
             "provisioning";
  }
}

std::string execRequest(std::string_view command) {
  return Json{{"op", wire::op}, {wire::commandKey, command}}.dump();
}

}  // namespace

bool Findings::expect(bool holds, std::string_view divergence) {
  if (!holds && verdict_ != Verdict::diverged) {
    verdict_ = Verdict::diverged;
    reason_ = divergence;
  }
  return holds;
}

bool Findings::expectEqual(std::string_view what, const Json& got, const Json& wanted) {
  return expect(got == wanted,
                std::string(what) + ": expected " + shown(wanted) + ", got " + shown(got));
}

void Findings::skip(std::string_view why) {
  if (verdict_ == Verdict::held) {
    verdict_ = Verdict::skipped;
    reason_ = why;
  }
}

std::string_view nameOf(Grant grant) {
  switch (grant) {
    case Grant::accessibility:
      return "accessibility";
    case Grant::inputSynthesis:
      return "input synthesis";
    default:
      return "screen recording";
  }
}

Guest::Guest(AgentAddress address, std::string app)
    : address_(std::move(address)), app_(std::move(app)), status_(ask({{"op", "ping"}})) {
  GuestCommand uname(*this, "uname -s");
  const bool ended = uname.awaitEnd();
  const auto& came = uname.came();
  system_ = came.out.substr(0, came.out.find('\n'));
  if (system_.empty() || came.code != 0) {
    execRefusal_ = came.refusal.value_or(ended ? "uname -s does not work" : "uname -s hangs");
  }
  if (app_.empty()) {
    app_ = isMac() ? "TextEdit" : "mousepad";
  }
}

bool Guest::granted(Grant grant) const {
  const auto readiness = status_.find("readiness");
  return grant == Grant::none || (readiness != status_.end() && readiness->is_object() &&
                                  truthy(*readiness, readinessKey(grant)));
}

GuestCommand::GuestCommand(const Guest& guest, std::string_view command, std::string_view behind)
    : GuestCommand(guest, Request{execRequest(command)}, behind) {}

GuestCommand::GuestCommand(const Guest& guest, Request request, std::string_view behind)
    : connection_(guest.connect()) {
  connection_.sendBytes(std::string(request.line).append("\n").append(behind));
}

template <class Condition>
bool GuestCommand::readUntil(Condition condition) {
  while (!condition()) {
    const auto line = connection_.waitForLine(soon());
    if (!line) {
      return false;
    }
    take(*line);
  }
  return true;
}

bool GuestCommand::awaitOutput(std::size_t size) {
  return readUntil([this, size] { return came_.out.size() >= size; });
}

bool GuestCommand::awaitLine() {
  return readUntil([this] { return came_.out.find('\n') != std::string::npos; });
}

bool GuestCommand::awaitEnd() {
  readUntil([] { return false; });
  return connection_.ended();
}

void GuestCommand::take(std::string_view line) {
  const auto frame = parseObject(line);
  const bool late = came_.code || came_.refusal;  // nothing follows these two
  if ((late || !frame || !takeFrame(*frame)) && came_.stray.empty()) {
    came_.stray = line;
  }
}

bool GuestCommand::takeFrame(const Json& frame) {
  const std::string* tag = stringMember(frame, wire::tagKey);
  if (!tag || frame.size() != 2) {
    return false;
  }
  if (*tag == wire::stdout_) {
    return takeOutput(frame, came_.out);
  }
  if (*tag == wire::stderr_) {
    return takeOutput(frame, came_.err);
  }
  if (*tag == wire::exit) {
    came_.code = integerMember(frame, wire::codeKey);
    return came_.code.has_value();
  }
  const std::string* message = stringMember(frame, wire::messageKey);
  if (*tag != wire::spawnError || !message) {
    return false;
  }
  came_.refusal = *message;
  return true;
}

bool GuestCommand::takeOutput(const Json& frame, std::string& stream) {
  const std::string* text = stringMember(frame, wire::dataKey);
  const auto bytes = text ? decodeBase64(*text) : std::nullopt;
  if (!bytes || bytes->empty()) {
    return false;
  }
  ++came_.chunks;
  came_.largestChunk = std::max(came_.largestChunk, bytes->size());
  stream += *bytes;
  return true;
}

GuestCommand::Came runToEnd(const Guest& guest, std::string_view command) {
  GuestCommand running(guest, command);
  if (!running.awaitEnd()) {
    throw AgentError::posix("waiting for the end of " + std::string(command), ETIMEDOUT);
  }
  return running.came();
}

std::int64_t pidIn(const GuestCommand::Came& came) {
  std::int64_t pid = -1;
  std::from_chars(came.out.data(), came.out.data() + came.out.size(), pid);
  return pid;
}

bool isRunning(const Guest& guest, std::int64_t pid) {
  // One that has ended and only waits to be reaped can still be signalled.
  const std::string number = std::to_string(pid);
  return runToEnd(guest, "kill -0 " + number + " 2>/dev/null || exit 1; case \"$(ps -o stat= -p " +
                             number + " 2>/dev/null)\" in Z*) exit 1;; esac; exit 0")
             .code == 0;
}

void expectRefusals(const Guest& guest, Findings& findings, Grant grant,
                    std::span<const Refusal> refusals) {
  const bool granted = guest.granted(grant);
  if (!granted) {
    findings.note(std::string(nameOf(grant)) + " is not granted, and the replies say so");
  }
  AgentConnection host = guest.connect();
  for (const auto& [request, error] : refusals) {
    host.sendLine(request);
    const auto line = host.waitForLine(soon());
    const auto reply = line ? parseObject(*line) : std::nullopt;
    const Json wanted = failure(granted ? error : refusalWithout(grant));
    if (!findings.expectEqual(request, reply.value_or(Json()), wanted)) {
      return;
    }
  }
}

bool needs(const Guest& guest, Findings& findings, Grant grant) {
  if (!guest.granted(grant)) {
    findings.skip(std::string(nameOf(grant)) + " is not granted");
  }
  return guest.granted(grant);
}

Json failure(std::string_view error) {
  return {{"ok", false}, {"error", error}};
}

bool hasMembers(const Json& object, std::initializer_list<const char*> names) {
  return object.is_object() && object.size() == names.size() &&
         std::all_of(names.begin(), names.end(),
                     [&](const char* name) { return object.contains(name); });
}

std::string shown(const Json& value) {
  if (value.is_null()) {
    return "nothing";
  }
  std::string text = value.dump(-1, ' ', false, Json::error_handler_t::replace);
  if (text.size() > shownBytes) {
    text.resize(shownBytes);
    text += "...";
  }
  return text;
}

}  // namespace tervain::ctl::conform
