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

}  // namespace tervain::ExecFrames
