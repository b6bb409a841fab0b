#pragma once

#include <ApplicationServices/ApplicationServices.h>

#include <chrono>
#include <memory>
#include <utility>

#include "Platform/Accessibility.h"
#include "Platform/macOS/CFRef.h"

namespace tervain::Platform {

struct AXElement::Handle {
  CFRef<AXUIElementRef> element;      // null when the system gave none for an application
  std::chrono::milliseconds timeout;  // how long a walk waits for an answer about it
};

inline AXElement makeElement(CFRef<AXUIElementRef> element, std::chrono::milliseconds timeout) {
  return AXElement(
      std::make_shared<const AXElement::Handle>(AXElement::Handle{std::move(element), timeout}));
}

/// The system's object, or null, which no call of the system takes.
inline AXUIElementRef referenceTo(const AXElement& element) {
  return element.handle().element.get();
}

/// How long a message about this very object waits for its answer: not one about another object
/// that is the same element, nor one about a child. Zero for the process's default.
inline void setMessagingTimeout(AXUIElementRef element, std::chrono::milliseconds timeout) {
  AXUIElementSetMessagingTimeout(element, std::chrono::duration<float>(timeout).count());
}

}  // namespace tervain::Platform
