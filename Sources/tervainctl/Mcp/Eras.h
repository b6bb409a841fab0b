#pragma once

#include <optional>
#include <string>

#include "tervainctl/Mcp/JsonRpc.h"

/// The two eras of the Model Context Protocol: one in which a host greets the server first and they
/// agree on a version, and one in which every request tells its own.
namespace tervain::mcp {

enum class Era { greeted, stateless };

/// The era that a request is of.
Era eraOf(const Request& request);

/// The error for a request of a version that is not known, or nothing.
std::optional<Json> refuseVersion(const Request& request);

/// Answers to "initialize" and to "server/discover". They call the server by this version.
Json greeting(const Request& request, const std::string& version);
Json discovery();

/// A result as its era has it. One that hosts may keep for a while says so.
enum class Keep { no, yes };
Json inEra(Era era, Json result, Keep keep, const std::string& version);

}  // namespace tervain::mcp
