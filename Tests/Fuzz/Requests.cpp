#include "Fuzz/Requests.h"

#include "Fuzz/Conversation.h"
#include "Fuzz/Fuzz.h"
#include "TervainVMAgent/ConnectionHandler.h"

namespace tervain::fuzz {

void serveRequests(const std::vector<std::string_view>& pieces, int socketType) {
  const Conversation held = converse(
      pieces, [](UniqueFD socket) { ConnectionHandler(std::move(socket)).run(); }, Then::endStream,
      socketType);
  LineSplitBuffer requests;
  for (const std::string_view piece : pieces) {
    requests.append(piece);
  }
  auto reply = held.lines.begin();
  for (bool isExec = false; !isExec;) {
    const auto line = requests.next();
    if (!line || (reply == held.lines.end() && held.fatal)) {
      break;
    }
    if (!line->empty()) {
      require(reply != held.lines.end(), "fewer replies than requests");
      const auto request = parseObject(*line);
      const std::string* op = ConnectionHandler::requestOp(request);
      isExec = op && *op == "exec";  // for which there is no shell
      require(isExec ? reply->value("t", "") == "err"
                     : reply->contains("ok") && reply->at("ok").is_boolean(),
              "a reply without \"ok\"");
      require(reply->value("error", "") != "reply serialization failed", "a reply without JSON");
      ++reply;
    }
  }
  require(reply == held.lines.end(), "more replies than requests");
  require(!held.fatal || held.fatal->starts_with("the number in \"") ||
              held.fatal->starts_with("the process identifier in \"pid\""),
          "a fatal error where there must be none");
}

}  // namespace tervain::fuzz
