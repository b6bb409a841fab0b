#pragma once

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Accessibility.h"
#include "Platform/Linux/Accessibility/Atspi.h"

namespace tervain::Linux {

/// What an application is made with. Each toolkit fills in its accessibility tree in its own way.
enum class Toolkit { other, gtk3, gtk4, qt, gecko, chromium };

/// Whether its elements are those of pages.
constexpr bool isBrowser(Toolkit toolkit) {
  return toolkit == Toolkit::gecko || toolkit == Toolkit::chromium;
}

/// A row of a table that manages its descendants. AT-SPI has no object for it.
struct TableRow {
  int index = 0;
  // What is looked at of it: all columns that show may be, and the first limited number of them.
  int firstColumn = 0;
  int lastColumn = 0;
  int columnCount = 0;  ///< how many columns there are in all
};

}  // namespace tervain::Linux

/// An element is an object of an application on the accessibility bus, or a row of one.
struct tervain::Platform::AXElement::Handle {
  /// Without a bus name when the application is not on the bus.
  Linux::AccessibilityBus::Object object;
  pid_t pid = 0;
  Linux::Toolkit toolkit = Linux::Toolkit::other;
  std::chrono::milliseconds timeout{};  ///< how long the application may be silent
  /// The path of the window or popover that it is in; empty for the application itself.
  std::string window;
  std::optional<Linux::TableRow> row{};  ///< of the table that the object is
  bool wasSilent = false;                ///< whether the application has already timed out once
};

namespace tervain::Linux {

/// The root object of a process's application. Nothing when it shows none, or can't be asked.
std::optional<AccessibilityBus::Object> applicationOf(AccessibilityBus::Connection& connection,
                                                      pid_t pid, std::chrono::milliseconds silence);

/// An application, which a name alone does not tell from one on another bus.
struct BusAndProcess {
  std::string bus;
  pid_t pid = 0;
  bool operator==(const BusAndProcess&) const = default;
};

/// Keeps a connection for the next who asks the same application.
struct GiveBack {
  BusAndProcess application;
  void operator()(AccessibilityBus::Connection* connection);
};
using StraightConnection = std::unique_ptr<AccessibilityBus::Connection, GiveBack>;

/// Closes kept connections to applications that have gone, as whoever asks for one does too.
void dropEndedConnections();

/// A connection straight to an application, where it offers one: GTK 3 does. Null otherwise.
StraightConnection straightTo(AccessibilityBus::Connection& connection,
                              const Platform::AXElement::Handle& application);

}  // namespace tervain::Linux
