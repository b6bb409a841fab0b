#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

#include "Platform/Accessibility.h"
#include "Platform/Linux/AccessibilityBus.h"

namespace tervain {

/// What an application is made with. Each toolkit fills in its accessibility tree in its own way.
enum class Toolkit { other, gtk3, gtk4, qt };

/// An element is an object of an application on the accessibility bus.
struct Platform::AXElement::Handle {
  AccessibilityBus::Object object;  ///< without a bus name when the application is not on the bus
  pid_t pid = 0;
  Toolkit toolkit = Toolkit::other;
  std::chrono::milliseconds timeout{};  ///< how long the application may be silent
  std::string window;      ///< the path of the window it is in; empty for the application itself
  bool wasSilent = false;  ///< whether the application has already timed out once
};

namespace AccessibilityBus {

/// The root object of a process's application. Nothing when it shows none, or can't be asked.
std::optional<Object> applicationOf(Connection& connection, pid_t pid,
                                    std::chrono::milliseconds silence);

/// A connection straight to an application, where it offers one: GTK 3 does. Null otherwise.
std::unique_ptr<Connection> straightTo(Connection& connection, const Object& application,
                                       std::chrono::milliseconds silence);

/// Objects that an answer lists; null objects are left out.
struct Objects {
  std::vector<Object> first;  ///< so many that an application could not show more
  std::size_t count = 0;      ///< how many there are in all
};
Objects readObjects(const Answer& answer);

/// The object that an answer holds, unless it is the null object.
std::optional<Object> readObject(const Answer& answer);

}  // namespace AccessibilityBus
}  // namespace tervain
