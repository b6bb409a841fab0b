#include "tervainctl/Mcp/JsonRpc.h"

namespace tervain::mcp {
namespace {

bool isId(const Json& id) {
  return id.is_string() || id.is_number_integer();
}

Malformed malformed(const Json& id, const char* text) {
  return {errorOf(isId(id) ? id : Json(), ErrorCode::invalidRequest, text)};
}

}  // namespace

Message parseMessage(std::string_view line) {
  auto object = parseObject(line);
  if (!object) {
    const std::size_t first = line.find_first_not_of(" \t");
    if (first != line.npos && line[first] == '[') {
      return malformed({}, "batches are not taken: send one object a line");
    }
    return Malformed{errorOf({}, ErrorCode::parse, "want one JSON object a line")};
  }
  const Json id = object->value("id", Json());
  const std::string* method = stringMember(*object, "method");
  if (!method) {
    const bool reply = object->contains("result") || object->contains("error");
    return reply ? Message(Reply{}) : malformed(id, "want a \"method\"");
  }
  const Json parameters = object->value("params", Json::object());
  if (object->value("jsonrpc", Json()) != "2.0" || !parameters.is_object()) {
    return malformed(id, R"(want "jsonrpc":"2.0", and an object as "params")");
  }
  if (!object->contains("id")) {
    return Notification{*method, parameters};
  }
  if (!isId(id)) {
    return malformed({}, "want a text or an integer as \"id\"");
  }
  return Request{id, *method, parameters};
}

Json resultOf(const Json& id, Json result) {
  return Json{{"jsonrpc", "2.0"}, {"id", id}, {"result", std::move(result)}};
}

Json errorOf(const Json& id, ErrorCode code, const std::string& text, const Json& data) {
  Json error{{"code", static_cast<int>(code)}, {"message", text}};
  if (!data.is_null()) {
    error["data"] = data;
  }
  return Json{{"jsonrpc", "2.0"}, {"id", id}, {"error", std::move(error)}};
}

}  // namespace tervain::mcp
