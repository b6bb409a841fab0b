#pragma once

#include <string>

#include "VMAgentClient/AgentConnection.h"
#include "VMAgentClient/Connect.h"
#include "tervainctl/Conformance/Patience.h"

namespace tervain::ctl::conform {

/// The applications that the desktop checks work with, by the names that the agent launches them
/// by, which are their programs' too. An empty one stands for the system's own.
struct Applications {
  std::string editor;  // has a text of several lines
  std::string other;   // shows a window, and may be ended at any time
};

/// The guest that is checked, as it was when the run began.
class Guest {
 public:
  /// Asks the agent about itself. Throws AgentError when it can't be talked to.
  Guest(AgentAddress address, Applications applications);

  /// A new connection. Throws AgentError.
  [[nodiscard]] AgentConnection connect() const { return AgentConnection(connectTo(address_)); }

  /// The reply to a request on a connection of its own. Throws AgentError.
  Json ask(const Json& request) const { return connect().request(request, soon()); }

  /// The agent's first reply to "ping", whatever it is.
  [[nodiscard]] const Json& status() const { return status_; }

  /// What `uname -s` prints in the guest; empty when it runs no commands.
  [[nodiscard]] const std::string& system() const { return system_; }
  [[nodiscard]] bool isMac() const { return system_ == "Darwin"; }

  /// Why the guest runs no commands; empty when it does.
  [[nodiscard]] const std::string& execRefusal() const { return execRefusal_; }

  /// None of them empty.
  [[nodiscard]] const Applications& applications() const { return applications_; }

 private:
  AgentAddress address_;
  Applications applications_;
  Json status_;
  std::string system_;
  std::string execRefusal_;
};

}  // namespace tervain::ctl::conform
