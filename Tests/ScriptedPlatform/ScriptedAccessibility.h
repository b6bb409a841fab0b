#pragma once

#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "Platform/Accessibility.h"

namespace tervain::test {

/// An element as a test scripts it. It also notes what was done to it.
struct ScriptedElement {
  std::map<Platform::AXAttribute, Platform::AXValue> attributes;
  std::vector<std::string> actionNames;
  bool settable = true;
  Platform::AXError result = Platform::AXError::success;  ///< of everything that is done to it
  std::vector<std::string> done;  ///< such as "AXPress", "value=text" and "focus"
};

/// A handle to a scripted element. The two live independently of each other.
Platform::AXElement handleOf(const std::shared_ptr<ScriptedElement>& element);

/// What the scripted accessibility interface knows.
struct ScriptedAccessibility {
  std::map<pid_t, std::shared_ptr<ScriptedElement>> applications;  ///< others can't be read
  std::variant<Platform::AXElement, Platform::AXError> atPosition = Platform::AXError::noValue;
  Platform::Point askedAt{};  ///< of the latest hit test
};

/// The script in force; a test sets it before it asks anything of the agent.
ScriptedAccessibility& scriptedAccessibility();

}  // namespace tervain::test
