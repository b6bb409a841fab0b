#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "VMAgentClient/AgentConnection.h"
#include "VMAgentClient/Selector.h"

/// The elements of the guest's applications, over a connection: dump, choose, wait, act. Refs that
/// a function gives are good on the connection until another one of them dumps. All throw Refusal
/// and what AgentConnection::request throws.
namespace tervain {

/// What of the guest is looked at.
struct Scope {
  /// The most levels that the agent shows. Elements are deep in web pages, and words find them
  /// there.
  static constexpr int deepest = 25;

  std::optional<std::int32_t> pid;  // the application's process; without one, what is frontmost
  int depth = deepest;              // levels below the root, 1 to 25
};

ElementTree dump(AgentConnection& connection, const Scope& scope,
                 Deadline deadline = Deadline::max());

/// Dumps, and chooses the one element that fits. Throws NotChosen as well.
Match chooseElement(AgentConnection& connection, const Scope& scope, const Selector& selector,
                    Deadline deadline = Deadline::max());

/// How a wait has ended.
struct Awaited {
  bool happened = false;       // in time
  std::vector<Match> matches;  // at the last look
  std::string remark;          // what was not to be seen then, in a sentence; empty if nothing
};

/// What is waited for: that an element fits, or that none does.
enum class Until { there, gone };

/// Dumps again and again until something fits, or nothing does, or the deadline has passed. Without
/// a frontmost application there is nothing that fits.
Awaited waitForElement(AgentConnection& connection, const Scope& scope, const Selector& selector,
                       Until until, Deadline deadline);

/// Performs an action, "AXPress" unless named, and returns the agent's note when the application
/// has not confirmed it. Nothing is ever repeated, as it may have had its effect: what is thrown
/// says to look first.
std::optional<std::string> press(AgentConnection& connection, const std::string& ref,
                                 const std::optional<std::string>& action = std::nullopt,
                                 Deadline deadline = Deadline::max());

void setValue(AgentConnection& connection, const std::string& ref, const std::string& value,
              Deadline deadline = Deadline::max());

void focus(AgentConnection& connection, const std::string& ref,
           Deadline deadline = Deadline::max());

/// Where to click on an element: the middle of what can be seen of it. Asks the agent how large the
/// screen is. Throws NotChosen when nothing of it can be seen.
ScreenPoint placeToClick(AgentConnection& connection, const Match& match,
                         Deadline deadline = Deadline::max());

}  // namespace tervain
