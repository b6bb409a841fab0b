#pragma once

#include <exception>
#include <string>

#include "VMAgentCore/Json.h"

/// Results of tools, as the protocol has them.
namespace tervain::mcp {

Json textResult(const std::string& text);
Json failureResult(const std::string& text);

/// What a model is told of a failure: its words, and what to do next.
std::string advise(const std::exception& failure);

}  // namespace tervain::mcp
