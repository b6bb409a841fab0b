#include "VMAgentClient/ProtocolError.h"
#include "VMAgentCore/AgentWire.h"
#include "VMAgentCore/Base64/Base64.h"
#include "tervainctl/Commands.h"

namespace tervain::ctl {

namespace wire = AgentWire::ShellEvents;

int collectShellEvents(AgentConnection& connection, const Call& call) {
  const Json reply = ask(connection, call);
  const std::string* text = stringMember(reply, wire::eventsKey);
  const auto events = text ? decodeBase64(*text) : std::nullopt;
  if (!events) {
    throw ProtocolError("the agent's reply holds no events");
  }
  print(*events);
  if (truthy(reply, wire::truncatedKey)) {
    remark("not all events fitted; raise --max-bytes, or collect again after --delete");
  }
  return 0;
}

}  // namespace tervain::ctl
