#include "TervainVMAgent/Reply.h"

#include "VMAgentCore/Base64/Base64.h"

namespace tervain {
namespace {

constexpr std::string_view serializationFailed =
    "{\"ok\":false,\"error\":\"reply serialization failed\"}\n";

}  // namespace

Reply Reply::success() {
  return Json{{"ok", true}};
}

Reply Reply::failure(std::string error) {
  return Json{{"ok", false}, {"error", std::move(error)}};
}

std::string Reply::line() && {
  auto line = serialize(object_);
  if (!line) {
    return std::string(serializationFailed);
  }
  if (!payloadKey_.empty()) {
    line->pop_back();  // the object is never empty: it has "ok"
    line->append(",\"").append(payloadKey_).append("\":\"");
    appendBase64(*line, payload_);
    line->append("\"}");
  }
  line->push_back('\n');
  return std::move(*line);
}

}  // namespace tervain
