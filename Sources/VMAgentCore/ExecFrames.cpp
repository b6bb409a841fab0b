#include "VMAgentCore/ExecFrames.h"

#include "VMAgentCore/AgentWire.h"
#include "VMAgentCore/Base64.h"
#include "VMAgentCore/Json.h"

namespace tervain::ExecFrames {
namespace {

namespace wire = AgentWire::Exec;

/// Writes the frame's members as text. Keys and tags are constants that need no escaping.
void open(std::string& line, std::string_view tag, std::string_view payloadKey) {
  line.assign("{\"").append(wire::tagKey).append("\":\"").append(tag);
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

/// What JSON text says of base64 digits, of which only slashes may be escaped. With any other
/// escape it is left as it is, which no base64 is.
std::string unescaped(std::string_view text) {
  std::string plain;
  plain.reserve(text.size());
  std::size_t escape = 0;
  while ((escape = text.find("\\/")) != std::string_view::npos) {
    plain.append(text.substr(0, escape)).push_back('/');
    text.remove_prefix(escape + 2);
  }
  return plain.append(text);
}

}  // namespace

void output(std::string& line, std::string_view tag, std::string_view bytes) {
  open(line, tag, wire::dataKey);
  line += '"';
  appendBase64(line, bytes);
  line += "\"}\n";
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
  auto bytes = decodeBase64(text->find('\\') == std::string_view::npos ? *text : unescaped(*text));
  return bytes ? std::optional(Payload{*tag, *std::move(bytes)}) : std::nullopt;
}

}  // namespace tervain::ExecFrames
