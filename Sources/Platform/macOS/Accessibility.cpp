#include "Platform/Accessibility.h"

#include <ApplicationServices/ApplicationServices.h>

#include <utility>

#include "Platform/macOS/AXHandle.h"
#include "Platform/macOS/CFRef.h"

namespace tervain::Platform {
namespace {

/// A string of a text that is valid UTF-8.
CFRef<CFStringRef> makeString(const std::string& text) {
  return CFRef<CFStringRef>::adopt(
      CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                              static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8,
                              /*isExternalRepresentation=*/false));
}

/// What a call on an element gives. One that the system has no object for is gone.
template <class Call>
AXError resultOf(const AXElement& element, Call call) {
  const auto reference = referenceTo(element);
  return reference ? static_cast<AXError>(call(reference)) : AXError::invalidUIElement;
}

}  // namespace

AXElement applicationElement(pid_t pid, std::chrono::milliseconds messagingTimeout) {
  auto application = CFRef<AXUIElementRef>::adopt(AXUIElementCreateApplication(pid));
  if (application) {
    setMessagingTimeout(application.get(), messagingTimeout);
  }
  return makeElement(std::move(application), messagingTimeout);
}

std::variant<AXElement, AXError> elementAtPosition(float x, float y,
                                                   std::chrono::milliseconds messagingTimeout) {
  const auto everything = CFRef<AXUIElementRef>::adopt(AXUIElementCreateSystemWide());
  if (!everything) {
    return AXError::failure;
  }
  // On this element, and on no other, it is the default of the whole process from now on.
  setMessagingTimeout(everything.get(), messagingTimeout);
  CFRef<AXUIElementRef> found;
  const auto result = AXUIElementCopyElementAtPosition(everything.get(), x, y, found.out());
  if (result != kAXErrorSuccess || !found) {
    return static_cast<AXError>(result);
  }
  return makeElement(std::move(found), messagingTimeout);
}

AXError performAction(const AXElement& element, const std::string& action) {
  const auto name = makeString(action);
  if (!name) {
    return AXError::failure;
  }
  return resultOf(element, [&](auto it) { return AXUIElementPerformAction(it, name.get()); });
}

bool isValueSettable(const AXElement& element) {
  Boolean settable = false;
  resultOf(element, [&](auto it) {
    return AXUIElementIsAttributeSettable(it, kAXValueAttribute, &settable);
  });
  return settable != 0;
}

AXError setValue(const AXElement& element, const std::string& value) {
  const auto string = makeString(value);
  if (!string) {
    return AXError::failure;
  }
  return resultOf(element, [&](auto it) {
    return AXUIElementSetAttributeValue(it, kAXValueAttribute, string.get());
  });
}

AXError setFocused(const AXElement& element) {
  return resultOf(element, [](auto it) {
    return AXUIElementSetAttributeValue(it, kAXFocusedAttribute, kCFBooleanTrue);
  });
}

}  // namespace tervain::Platform
