#include "VMAgentClient/Refusal.h"

namespace tervain {

Json successOf(AgentConnection& connection, const Json& request, Deadline deadline) {
  Json reply = connection.request(request, deadline);
  if (!truthy(reply, "ok")) {
    const std::string* error = stringMember(reply, "error");
    throw Refusal(error ? *error : "the agent refused, and gives no reason");
  }
  return reply;
}

}  // namespace tervain
