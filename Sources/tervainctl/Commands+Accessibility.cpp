#include "VMAgentClient/Outline.h"
#include "tervainctl/Commands.h"

namespace tervain::ctl {
namespace {

/// Prints the reply's element under this key as an outline, or the reply as it is.
int show(AgentConnection& connection, const Call& call, const char* key) {
  const Json reply = ask(connection, call);
  const auto node = reply.find(key);
  const Element element = elementOf(node == reply.end() ? Json() : *node);
  print(given(call, "json") ? reply.dump() + "\n" : outline(element));
  if (truthy(reply, "truncated")) {
    remark("there are more elements than the agent shows at once; try a smaller --depth");
  }
  return 0;
}

}  // namespace

int showTree(AgentConnection& connection, const Call& call) {
  return show(connection, call, "tree");
}

int showElementAt(AgentConnection& connection, const Call& call) {
  return show(connection, call, "node");
}

}  // namespace tervain::ctl
