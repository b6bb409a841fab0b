
#include "VMAgentClient/ProtocolError.h"
#include "VMAgentCore/AgentWire.h"
#include "VMAgentCore/Base64/Base64.h"
#include "tervainctl/Commands.h"

namespace tervain::ctl {

namespace wire = AgentWire::ShellEvents;

int collectShellEvents(AgentConnection& connection, const Call& call) {
  const auto reply = ask(connection, requestOf(call.command, call.arguments));
  if (!reply) {
    return failed;
  }
  const std::string* text = stringMember(*reply, wire::eventsKey);
  const auto events = text ? decodeBase64(*text) : std::nullopt;
  if (!events) {
    throw ProtocolError("the agent's reply holds no events");
  }
  print(*events);
  if (truthy(*reply, wire::truncatedKey)) {
    remark("not all events fitted; raise --max-bytes, or collect again after --delete");
  }
  return 0;
}

}  // namespace tervain::ctl
