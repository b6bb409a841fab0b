#include "VMAgentCore/ExecFrames.h"

#include "VMAgentCore/AgentWire.h"
#include "VMAgentCore/Base64/Base64.h"
#include "VMAgentCore/Json.h"

namespace tervain::ExecFrames {
namespace {

namespace wire = AgentWire::Exec;

/// Writes the frame's members as text. Keys and tags are constants that need no escaping.
void open(std::string& line, std::string_view tag, std::string_view payloadKey) {
  line.append("{\"").append(wire::tagKey).append("\":\"").append(tag);
  line.append("\",\"").append(payloadKey).append("\":");
}

/// Takes a string with its quotes, of which none is escaped, off the front of a text.
std::optional<std::string_view> takeString(std::string_view& text) {
  const std::size_t end = text.starts_with('"') ? text.find('"', 1) : std::string_view::npos;
  if (end == std::string_view::npos) {
    return std::nullopt;
  }
  const std::string_view inside = text.substr(1, end - 1);
  text.remove_prefix(end + 1);
  return inside;
}

bool take(std::string_view& text, char c) {
  const bool there = text.starts_with(c);
  text.remove_prefix(there ? 1 : 0);
  return there;
}

/// Takes a member off the front of a text and gives its value.
std::optional<std::string_view> takeMember(std::string_view& text, std::string_view key) {
  return takeString(text) == key && take(text, ':') ? takeString(text) : std::nullopt;
}

}  // namespace

void appendBytes(std::string& frames, std::string_view tag, std::string_view bytes) {
  open(frames, tag, wire::dataKey);
  frames += '"';
  appendBase64(frames, bytes);
  frames += "\"}\n";
}

std::string exit(int code) {
  std::string line;
  open(line, wire::exit, wire::codeKey);
  return line.append(std::to_string(code)).append("}\n");
}

std::string error(std::string_view message) {
  std::string line;
  open(line, wire::spawnError, wire::messageKey);
  return line.append(serialize(Json(message)).value_or("\"\"")).append("}\n");
}

std::optional<Payload> payload(std::string_view line) {
  if (!take(line, '{')) {
    return std::nullopt;
  }
  const auto tag = takeMember(line, wire::tagKey);
  const auto text = tag && take(line, ',') ? takeMember(line, wire::dataKey) : std::nullopt;
  if (!text || line != "}") {
    return std::nullopt;
  }
  auto bytes = decodeEscapedBase64(*text);
  return bytes ? std::optional(Payload{*tag, *std::move(bytes)}) : std::nullopt;
}

}  // namespace tervain::ExecFrames
