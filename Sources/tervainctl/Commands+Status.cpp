#include "tervainctl/Commands.h"

namespace tervain::ctl {
namespace {

std::string displayLine(const Json& display) {
  std::string line = "display " + numberText(display, "id") + ": " + numberText(display, "width") +
                     "x" + numberText(display, "height");
  return line.append(truthy(display, "main") ? " (main)\n" : "\n");
}

std::string grantLine(const Json& readiness, const char* label, std::string_view key) {
  return std::string(label) + (truthy(readiness, key) ? ": granted\n" : ": not granted\n");
}

std::string describe(const Json& ping) {
  std::string text = "agent protocol v" + numberText(ping, "version") + "\n";
  const auto displays = ping.find("displays");
  if (displays != ping.end() && displays->is_array()) {
    for (const Json& display : *displays) {
      text += display.is_object() ? displayLine(display) : "";
    }
  }
  const auto readiness = ping.find("readiness");
  if (readiness != ping.end() && readiness->is_object()) {
    text += grantLine(*readiness, "accessibility", "accessibility");
    text += grantLine(*readiness, "screen recording", "screenRecording");
    text += grantLine(*readiness, "input synthesis", "postEvent");
  }
  return text;
}

}  // namespace

int showStatus(AgentConnection& connection, const Call& call) {
  const Json reply = ask(connection, call);
  print(given(call, "json") ? reply.dump() + "\n" : describe(reply));
  return 0;
}

int showPointer(AgentConnection& connection, const Call& call) {
  const Json reply = ask(connection, call);
  print(numberText(reply, "x") + " " + numberText(reply, "y") + "\n");
  return 0;
}

}  // namespace tervain::ctl
