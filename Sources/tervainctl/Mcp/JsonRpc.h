#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "VMAgentCore/Json.h"

/// The messages of JSON-RPC 2.0, one a line.
namespace tervain::mcp {

enum class ErrorCode {
  parse = -32700,
  invalidRequest = -32600,
  unknownMethod = -32601,
  invalidParameters = -32602,
  unsupportedVersion = -32022,
};

/// A message that expects a reply.
struct Request {
  Json id;  // a text or an integer
  std::string method;
  Json parameters = Json::object();
};

/// A message that expects none.
struct Notification {
  std::string method;
  Json parameters = Json::object();
};

/// The reply to something that was never asked for.
struct Reply {};

/// What is no message, and what to answer to it: a whole error.
struct Malformed {
  Json error;
};

using Message = std::variant<Request, Notification, Reply, Malformed>;

Message parseMessage(std::string_view line);

Json resultOf(const Json& id, Json result);
Json errorOf(const Json& id, ErrorCode code, const std::string& text, const Json& data = {});

}  // namespace tervain::mcp
