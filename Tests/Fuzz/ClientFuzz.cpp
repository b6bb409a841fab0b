// What a hostile agent sends to a host: as replies to requests, and as the frames of a command. The
// host must make of it what the JSON library makes of it, and get to the end.
#include <algorithm>

#include "Fuzz/Conversation.h"
#include "Fuzz/Fuzz.h"
#include "VMAgentClient/ProtocolError.h"
#include "VMAgentClient/RemoteCommand.h"
#include "VMAgentCore/Base64/Base64.h"
#include "VMAgentCore/IO.h"
#include "VMAgentCore/System.h"

using namespace tervain;

namespace {

/// The object that a line is, as the library sees it.
std::optional<Json> objectOf(std::string_view line) {
  const auto opens =
      std::count_if(line.begin(), line.end(), [](char c) { return c == '{' || c == '['; });
  const bool hasNul = line.find('\0') != std::string_view::npos;
  // The library takes a NUL for the end, and bounds no depth. Both are checked by unit tests.
  if (hasNul || opens > maxJsonDepth) {
    return parseObject(line);
  }
  Json value = Json::parse(line, nullptr, false);
  return value.is_object() ? std::optional(std::move(value)) : std::nullopt;
}

LineSplitBuffer linesOf(const std::vector<std::string_view>& pieces) {
  LineSplitBuffer lines;
  for (const std::string_view piece : pieces) {
    lines.append(piece);
  }
  return lines;
}

void askForReplies(const std::vector<std::string_view>& pieces) {
  LineSplitBuffer lines = linesOf(pieces);
  const auto ask = [&lines](UniqueFD socket) {
    AgentConnection connection(std::move(socket));
    for (bool replied = true; replied;) {
      const auto line = lines.next();
      const auto expected = line ? objectOf(*line) : std::nullopt;
      try {
        const Json reply = connection.request({{"op", "ping"}});
        fuzz::require(expected && reply == *expected, "another reply than was sent");
      } catch (const ProtocolError&) {
        fuzz::require(!expected, "a reply was refused");
        replied = false;
      }
    }
  };
  fuzz::converse(pieces, ask);
}

/// How a command came out: its output, and "x" and its code, "err" and a message, or nothing.
struct Outcome {
  std::string out;
  std::string err;
  std::string end;
  bool operator==(const Outcome&) const = default;
};

Outcome understood(LineSplitBuffer lines) {
  Outcome outcome;
  while (const auto line = lines.next()) {
    const Json frame = objectOf(*line).value_or(Json::object());
    const std::string* tag = stringMember(frame, "t");
    const std::string* refusal = stringMember(frame, tag ? "m" : "error");
    if (tag && (*tag == "o" || *tag == "e")) {
      const std::string* data = stringMember(frame, "d");
      const auto bytes = data ? decodeBase64(*data) : std::nullopt;
      (*tag == "o" ? outcome.out : outcome.err) += bytes.value_or("");
    } else if (tag && *tag == "x") {
      const auto code = static_cast<int>(integerMember(frame, "code").value_or(-1));
      return {outcome.out, outcome.err, "x" + std::to_string(code)};
    } else if (tag ? *tag == "err" : refusal != nullptr) {
      return {outcome.out, outcome.err, "err" + (refusal ? *refusal : "the agent gives no reason")};
    }
  }
  return outcome;
}

Outcome run(UniqueFD socket) {
  System::Pipe input = System::makePipe();
  writeAll(input.writeEnd.get(), "some input");
  input.writeEnd.reset();
  Outcome outcome;
  const auto result = RemoteCommand(AgentConnection(std::move(socket)), "command")
                          .run({.input = input.readEnd.get(),
                                .onOutput = [&outcome](std::string_view s) { outcome.out += s; },
                                .onError = [&outcome](std::string_view s) { outcome.err += s; }});
  if (const auto* exited = std::get_if<RemoteCommand::Exited>(&result)) {
    outcome.end = "x" + std::to_string(exited->code);
  } else if (const auto* refused = std::get_if<RemoteCommand::Refused>(&result)) {
    outcome.end = "err" + refused->message;
  }
  return outcome;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::LeakCheck leaks;
  const auto pieces = fuzz::pieces(fuzz::textOf(data, size));
  askForReplies(pieces);
  Outcome outcome;
  fuzz::converse(pieces, [&outcome](UniqueFD socket) { outcome = run(std::move(socket)); });
  fuzz::require(outcome == understood(linesOf(pieces)), "a command came out otherwise");
  return 0;
}
