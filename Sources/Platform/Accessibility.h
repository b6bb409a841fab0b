#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Platform/Geometry.h"

/// The system's accessibility interface: elements, their attributes and actions. Every system
/// speaks the macOS vocabulary here (roles like AXButton, actions like AXPress).
///
/// All calls are synchronous, may be made from any thread, and give up on an application that does
/// not answer within the messaging timeout.
namespace tervain::Platform {

/// A result code of the accessibility interface. Codes without a name here occur too.
enum class AXError : std::int32_t {
  success = 0,
  failure = -25200,
  illegalArgument = -25201,
  invalidUIElement = -25202,
  cannotComplete = -25204,
  attributeUnsupported = -25205,
  actionUnsupported = -25206,
  notImplemented = -25208,
  apiDisabled = -25211,
  noValue = -25212,
};

/// A handle to an element of some application's interface, which may be gone by now. A value:
/// copies share the system's object, which lives as long as the last of them.
class AXElement {
 public:
  /// What the port keeps behind a handle; each port defines its own.
  struct Handle;

  explicit AXElement(std::shared_ptr<const Handle> handle) : handle_(std::move(handle)) {}
  [[nodiscard]] const Handle& handle() const { return *handle_; }

 private:
  std::shared_ptr<const Handle> handle_;
};

enum class AXAttribute { role, subrole, title, value, enabled, focused, position, size, children };

/// A number as the application gave it, for its text depends on its precision. Booleans are the
/// integers 0 and 1.
using AXNumber = std::variant<std::int64_t, float, double>;

/// The absolute text of a URL.
struct AXURL {
  std::string text;
};

/// A value of a type that nobody asks for, such as a range or a date.
struct AXOther {};

/// A list of elements. A reader that knows how many of them its walk looks at may leave out the
/// rest, which can be thousands.
struct AXElements {
  std::vector<AXElement> first;
  std::size_t count;  ///< how many there are in all
};

using AXValue = std::variant<AXOther, std::string, AXNumber, AXURL, Point, Size, AXElements>;

/// The bounds of a depth-first walk, for reading ahead.
struct AXWalk {
  int maxDepth;             ///< the root has depth 0
  int maxNodes;             ///< how many nodes the walk visits in all
  std::size_t maxChildren;  ///< how many children of a node it looks at
};

/// Reads elements, live. A reader that is told of a walk may read ahead what that walk will ask
/// for; it lives as long as the walk does, so that nothing stale is ever shown.
class AXReader {
 public:
  AXReader();
  AXReader(const AXElement& root, const AXWalk& walk);
  AXReader(const AXReader&) = delete;
  AXReader& operator=(const AXReader&) = delete;
  ~AXReader();

  /// An attribute's value. Nothing when it has none, or when it can't be read.
  std::optional<AXValue> attribute(const AXElement& element, AXAttribute attribute);

  /// The names of an element's actions in the system's order. Empty when they can't be read.
  std::vector<std::string> actionNames(const AXElement& element);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

/// The root element of an application, whether or not a process of that number exists. Reads of it
/// wait for the application for `messagingTimeout` at the most.
AXElement applicationElement(pid_t pid, std::chrono::milliseconds messagingTimeout);

/// The element at a point of the screen, whichever application owns it; or the result code, which
/// is success when the system found nothing to give.
std::variant<AXElement, AXError> elementAtPosition(float x, float y,
                                                   std::chrono::milliseconds messagingTimeout);

/// Performs an action, by any name.
AXError performAction(const AXElement& element, const std::string& action);

/// Whether the value can be written. False too when that can't be found out.
bool isValueSettable(const AXElement& element);

/// Writes the value as a string.
AXError setValue(const AXElement& element, const std::string& value);

/// Gives the element the keyboard focus.
AXError setFocused(const AXElement& element);

}  // namespace tervain::Platform
