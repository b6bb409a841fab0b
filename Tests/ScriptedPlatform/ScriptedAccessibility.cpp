#include "ScriptedPlatform/ScriptedAccessibility.h"

namespace tervain {

struct Platform::AXElement::Handle {
  std::shared_ptr<test::ScriptedElement> element;
};

test::ScriptedAccessibility& test::scriptedAccessibility() {
  static ScriptedAccessibility accessibility;
  return accessibility;
}

Platform::AXElement test::handleOf(const std::shared_ptr<ScriptedElement>& element) {
  return Platform::AXElement(
      std::make_shared<const Platform::AXElement::Handle>(Platform::AXElement::Handle{element}));
}

namespace Platform {
namespace {

AXError note(const AXElement& element, const std::string& what) {
  test::ScriptedElement& scripted = *element.handle().element;
  scripted.done.push_back(what);
  return scripted.result;
}

}  // namespace

struct AXReader::State {};

AXReader::AXReader() = default;
AXReader::AXReader(const AXElement& /*root*/, const AXWalk& /*walk*/) {}
AXReader::~AXReader() = default;

// A port's readers have a state; this one's methods could as well be static.
// NOLINTBEGIN(readability-convert-member-functions-to-static)
std::optional<AXValue> AXReader::attribute(const AXElement& element, AXAttribute attribute) {
  const auto& attributes = element.handle().element->attributes;
  const auto found = attributes.find(attribute);
  return found == attributes.end() ? std::nullopt : std::optional(found->second);
}

std::vector<std::string> AXReader::actionNames(const AXElement& element) {
  return element.handle().element->actionNames;
}
// NOLINTEND(readability-convert-member-functions-to-static)

AXElement applicationElement(pid_t pid, std::chrono::milliseconds /*messagingTimeout*/) {
  const auto& applications = test::scriptedAccessibility().applications;
  const auto found = applications.find(pid);
  return test::handleOf(found == applications.end() ? std::make_shared<test::ScriptedElement>()
                                                    : found->second);
}

std::variant<AXElement, AXError> elementAtPosition(float x, float y,
                                                   std::chrono::milliseconds /*messagingTimeout*/) {
  test::scriptedAccessibility().askedAt = {x, y};
  return test::scriptedAccessibility().atPosition;
}

AXError performAction(const AXElement& element, const std::string& action) {
  return note(element, action);
}

bool isValueSettable(const AXElement& element) {
  return element.handle().element->settable;
}

AXError setValue(const AXElement& element, const std::string& value) {
  return note(element, "value=" + value);
}

AXError setFocused(const AXElement& element) {
  return note(element, "focus");
}

}  // namespace Platform
}  // namespace tervain
