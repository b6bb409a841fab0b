#pragma once

#include <stdexcept>

#include "VMAgentClient/AgentConnection.h"

namespace tervain {

/// The agent answered that something can't be done. The text begins with its own words.
class Refusal : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Sends a request and returns its reply if that is a success. Throws Refusal otherwise, and what
/// AgentConnection::request throws.
Json successOf(AgentConnection& connection, const Json& request,
               Deadline deadline = Deadline::max());

}  // namespace tervain
