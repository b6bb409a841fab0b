#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

#include "VMAgentClient/Clipboard.h"
#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/IO.h"
#include "tervainctl/Commands.h"

namespace tervain::ctl {
namespace {

std::string readInput() {
  std::string text;
  std::array<char, readSize> buffer{};
  ssize_t n = 0;
  while ((n = readSome(STDIN_FILENO, buffer)) > 0) {
    text.append(buffer.data(), static_cast<std::size_t>(n));
  }
  if (n < 0) {
    throw AgentError::posix("reading the text", errno);
  }
  return text;
}

}  // namespace

int type(AgentConnection& connection, const Call& call) {
  Json request = requestOf(call.command, call.arguments);
  if (request.at("text") == "-") {
    if (call.inSession) {
      complain("in a session standard input has the commands; put the text on the line");
      return failed;
    }
    request["text"] = readInput();
  }
  return tell(connection, request);
}

int useClipboard(AgentConnection& connection, const Call& call) {
  if (call.arguments.at("verb") == "get") {
    if (call.arguments.contains("text")) {
      complain("clipboard get takes no text");
      return badUsage;
    }
    print(clipboardText(std::move(connection)));
    return 0;
  }
  const auto text = textArgument(call, "text");
  setClipboard(std::move(connection), text && *text != "-" ? *text : readInput());
  return 0;
}

}  // namespace tervain::ctl
