#include "tervainctl/Mcp/Results.h"

#include "VMAgentClient/ProtocolError.h"
#include "VMAgentClient/Refusal.h"
#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/Json.h"
#include "tervainctl/CommandTable/Arguments.h"
#include "tervainctl/Mcp/Texts.h"

namespace tervain::mcp {

Json textResult(const std::string& text) {
  return {{"content", {{{"type", "text"}, {"text", text}}}}, {"isError", false}};
}

Json failureResult(const std::string& text) {
  std::string whole = text + "\n";
  Json result = textResult(cutLines(utf8Of(whole), mostText, "say more of what is meant"));
  result["isError"] = true;
  return result;
}

std::string advise(const std::exception& failure) {
  std::string text = failure.what();
  if (dynamic_cast<const AgentError*>(&failure)) {
    return text +
           ". The guest or its agent is away: see that it runs, and try again. Refs from before "
           "are gone then.";
  }
  if (dynamic_cast<const ProtocolError*>(&failure)) {
    return text +
           ". The guest may hang, or may have been restarted: call status to see whether it "
           "answers, then take a new snapshot.";
  }
  if (dynamic_cast<const ctl::BadArgument*>(&failure)) {
    return "These arguments can't be used: " + text + ".";
  }
  return text;
}

}  // namespace tervain::mcp
