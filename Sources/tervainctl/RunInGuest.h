#pragma once

#include <string>

#include "VMAgentClient/AgentAddress.h"
#include "VMAgentClient/AgentConnection.h"

namespace tervain::ctl {

/// A command for the guest's shell, with our standard streams.
struct GuestRun {
  std::string line;
  bool noInput = false;
  bool terminal = false;  // it gets a terminal of the guest's making
};

/// Runs it, and returns its exit status, or `notRun`. Throws AgentError.
int runInGuest(AgentConnection connection, const AgentAddress& agent, const GuestRun& run);

}  // namespace tervain::ctl
