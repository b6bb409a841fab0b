#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "VMAgentCore/Environment.h"

/// What a checkup of the guest asks of a system that no other header of the seam answers. All of it
/// only looks, and none of it blocks for long.
namespace tervain::Platform {

enum class Verdict {
  fine,
  wrong,
  unsure,  ///< it can't be found out from here, or may be meant
};

/// What was found out about one thing.
struct Finding {
  Verdict verdict;
  std::string_view subject;  ///< of static lifetime
  std::string seen;          ///< what there is, in words
  std::string remedy;        ///< the line that mends it; empty when it is fine
};

inline Finding fine(std::string_view subject, std::string seen) {
  return {Verdict::fine, subject, std::move(seen), {}};
}

inline Finding wrong(std::string_view subject, std::string seen, std::string remedy) {
  return {Verdict::wrong, subject, std::move(seen), std::move(remedy)};
}

inline Finding unsure(std::string_view subject, std::string seen, std::string remedy = {}) {
  return {Verdict::unsure, subject, std::move(seen), std::move(remedy)};
}

/// The environment of the agent that the service manager runs for this user. Empty when it runs
/// none, or doesn't tell.
Environment serviceEnvironment();

/// How the agent is installed, and what the service manager knows of it.
std::vector<Finding> examineInstallation();

/// What the agent needs of the session, each thing after those that it depends on.
std::vector<Finding> examineSession();

/// What can be wrong in the same way on every system.
enum class Trouble {
  noDisplay,
  noAccessibility,
  noPostEvent,
  noScreenRecording,
  noPicture,      ///< granted, but capturing fails or shows nothing
  stuckPointer,   ///< granted, but events don't move it
  noShell,        ///< the agent shell is not there, or runs no commands
  noVsock,        ///< the port can't be opened
  portTaken,      ///< something else has the port
  nobodyListens,  ///< nobody has the port
};

/// The line that mends it on this system.
std::string_view remedyFor(Trouble trouble);

}  // namespace tervain::Platform
