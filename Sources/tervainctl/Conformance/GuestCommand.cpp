#include "tervainctl/Conformance/GuestCommand.h"

#include <algorithm>
#include <charconv>

#include "VMAgentClient/ProtocolError.h"
#include "VMAgentCore/AgentWire.h"
#include "VMAgentCore/Base64/Base64.h"

namespace tervain::ctl::conform {
namespace {

namespace wire = AgentWire::Exec;

std::string execRequest(std::string_view command) {
  return Json{{"op", wire::op}, {wire::commandKey, command}}.dump();
}

}  // namespace

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
    throw ProtocolError("the agent has not told in time how this ended: " + std::string(command));
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

Cleanup::~Cleanup() {
  try {
    runToEnd(guest_, command_);
  } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): the guest is out of reach
  }
}

}  // namespace tervain::ctl::conform
