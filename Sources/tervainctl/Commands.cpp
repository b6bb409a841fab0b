#include "tervainctl/Commands.h"

#include <unistd.h>

#include <array>
#include <cerrno>

#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/IO.h"

namespace tervain::ctl {
namespace {

constexpr std::array table{
    Command{"ping", "Show the agent's version, displays and privacy grants", declarePing},
    Command{"cursor", "Show where the pointer is", declareCursor},
    Command{"screenshot", "Take a picture of a display, as JPEG", declareScreenshot},
    Command{"click", "Click at a point", declareClick},
    Command{"move", "Move the pointer to a point", declareMove},
    Command{"drag", "Drag to a point with the left button", declareDrag},
    Command{"scroll", "Scroll what is under the pointer, by lines", declareScroll},
    Command{"type", "Type a text", declareType},
    Command{"key", "Press a key, such as return or cmd+shift+z", declareKey},
    Command{"launch", "Start an application, or bring it up", declareLaunch},
    Command{"tree", "Show an application's elements as an outline", declareTree},
    Command{"at", "Show the element at a point", declareAt},
    Command{"press", "Perform an action of an element", declarePress, Place::session},
    Command{"set", "Set an element's value", declareSet, Place::session},
    Command{"focus", "Give an element the keyboard focus", declareFocus, Place::session},
    Command{"exec", "Run a command in the guest: exec -- COMMAND...", declareExec, Place::alone,
            true, notRun},
    Command{"events", "Collect the guest's shell events", declareEvents},
    Command{"session", "Perform commands from standard input, one a line, on one connection",
            declareSession, Place::alone},
    Command{"conform", "Check that an agent does all that it should", declareConform, Place::alone},
    Command{"raw", "Send request lines from standard input, print the replies", declareRaw,
            Place::alone},
};

}  // namespace

std::span<const Command> commands() {
  return table;
}

std::optional<Json> ask(AgentConnection& connection, const Json& request) {
  Json reply = connection.request(request);
  if (truthy(reply, "ok")) {
    return reply;
  }
  const std::string* error = stringMember(reply, "error");
  complain(error ? *error : "the agent refused, and gives no reason");
  return std::nullopt;
}

int tell(AgentConnection& connection, const Json& request) {
  const auto reply = ask(connection, request);
  if (!reply) {
    return failed;
  }
  if (const std::string* note = stringMember(*reply, "note")) {
    complain(*note);
  }
  return 0;
}

std::string numberText(const Json& object, std::string_view key) {
  const auto number = integerMember(object, key);
  return number ? std::to_string(*number) : "?";
}

void print(std::string_view bytes) {
  if (!writeAll(STDOUT_FILENO, bytes)) {
    throw AgentError::posix("writing the output", errno);
  }
}

void complain(std::string_view message) {
  std::string line = "tervainctl: ";
  writeAll(STDERR_FILENO, line.append(message).append("\n"));
}

}  // namespace tervain::ctl
