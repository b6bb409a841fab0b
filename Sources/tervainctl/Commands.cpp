#include "tervainctl/Commands.h"

#include <unistd.h>

#include <array>
#include <cerrno>

#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/IO.h"

namespace tervain::ctl {
namespace {

constexpr std::array table{
    Command{"ping", "Show the agent's version, displays and privacy grants", declarePing, false,
            failed},
    Command{"cursor", "Show where the pointer is", declareCursor, false, failed},
    Command{"exec", "Run a command in the guest: exec -- COMMAND...", declareExec, true, notRun},
    Command{"events", "Collect the guest's shell events", declareEvents, false, failed},
    Command{"raw", "Send request lines from standard input, print the replies", declareRaw, false,
            failed},
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
