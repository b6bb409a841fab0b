#pragma once

#include <functional>
#include <string>
#include <vector>

namespace tervain::test {

/// What the scripted platform does with input events: it notes each event that is posted and each
/// wait as one line of text, and waits for nothing.
///
///     "moved 10,20 left", "leftDown 10,20 left click 1", "wait 40000", "scroll 3,0",
///     "key 1 down flags 100000", "key 0 up text 61 e9"
struct ScriptedEvents {
  std::vector<std::string> posted;

  /// Whether the next event can be made; asked for every one.
  std::function<bool()> canMake = [] { return true; };

  /// Called for every line of an event that is posted.
  std::function<void(const std::string& line)> onPost = nullptr;
};

/// The script in force; a test sets it before it asks anything of the agent.
ScriptedEvents& scriptedEvents();

}  // namespace tervain::test
