#include <utility>

#include "TervainVMAgent/ConnectionHandler.h"
#include "VMAgentCore/AgentWire.h"
#include "VMAgentCore/ExecSession.h"
#include "VMAgentCore/IO.h"

namespace tervain {
namespace {

namespace wire = AgentWire::Exec;

/// No host can get this today: a line that does not parse names no operation, and so is never
/// routed here. Put together by hand: unlike all other frames this one has a fixed byte form.
std::string didNotParse() {
  std::string line = "{\"";
  line.append(wire::tagKey).append("\":\"").append(wire::spawnError).append("\",\"");
  return line.append(wire::messageKey).append("\":\"exec request did not parse\"}\n");
}

}  // namespace

void ConnectionHandler::runExec(const std::optional<Json>& request) {
  if (!request) {
    writeAll(fd_.get(), didNotParse());
    return;
  }
  ExecSession(fd_.get(), std::exchange(lines_, {})).run(*request);
}

}  // namespace tervain
