#include <algorithm>
#include <charconv>
#include <cmath>
#include <string_view>

#include "Platform/Linux/Facts.h"
#include "Platform/Linux/Placement.h"

namespace tervain::Platform {

using AccessibilityBus::Answer;
using AccessibilityBus::Connection;
using AccessibilityBus::Message;
using AccessibilityBus::Outcome;
using AXNames::State;
using Handle = AXElement::Handle;

namespace {

constexpr const char* accessible = "org.a11y.atspi.Accessible";
constexpr const char* component = "org.a11y.atspi.Component";
constexpr const char* editableText = "org.a11y.atspi.EditableText";
constexpr const char* valueInterface = "org.a11y.atspi.Value";
constexpr const char* actionInterface = "org.a11y.atspi.Action";

/// An element that is about to be acted on: looked at, and found to be there.
struct Target {
  Connection* connection = nullptr;
  Facts facts;
  AXError error = AXError::success;  ///< why nothing can be done to it, else success
};

AXError errorOf(Outcome outcome) {
  switch (outcome) {
    case Outcome::answered:
      return AXError::success;
    case Outcome::unknown:
    case Outcome::noOwner:
    case Outcome::noReply:
      return AXError::invalidUIElement;
    case Outcome::refused:
      return AXError::failure;
    case Outcome::timedOut:
    case Outcome::noBus:
      break;
  }
  return AXError::cannotComplete;
}

Target lookAt(const Handle& handle) {
  Target target;
  if (handle.object.bus.empty()) {
    target.error = AXError::invalidUIElement;
    return target;
  }
  target.connection = Connection::ofThisThread();
  if (!target.connection) {
    target.error = AXError::cannotComplete;
    return target;
  }
  FactsNow now = readFactsNow(*target.connection, handle);
  target.error = errorOf(now.outcome);
  target.facts = std::move(now.facts);
  // Closed dialogs and what is in them often live on unseen.
  if (target.error == AXError::success && !target.facts.shows()) {
    target.error = AXError::invalidUIElement;
  }
  return target;
}

/// What a request that failed means, given that the element was there a moment ago: `unsupported`
/// when it still is.
AXError explain(Connection& connection, const Handle& handle, Outcome outcome,
                AXError unsupported) {
  if (outcome != Outcome::unknown && outcome != Outcome::refused) {
    return errorOf(outcome);
  }
  auto question = connection.method(handle.object, accessible, "GetRole");
  const Outcome alive = connection.askNow(std::move(question), handle.timeout).outcome;
  return alive == Outcome::answered ? unsupported : errorOf(alive);
}

AXError raise(const Handle& handle, const Facts& toplevel) {
  auto x11 = X11::Session::open(X11::Clock::now() + X11::lookLimit);
  if (!x11) {
    return AXError::cannotComplete;
  }
  const auto windows = X11::windowsOf(*x11, handle.pid);
  const X11::Window* const window = windowShowing(toplevel, windows);
  if (!window) {
    return AXError::actionUnsupported;
  }
  X11::activate(*x11, window->id);
  return AXError::success;
}

AXError doAction(Connection& connection, const Handle& handle, int index) {
  Message call = connection.method(handle.object, actionInterface, "DoAction");
  sd_bus_message_append(call.get(), "i", index);
  const Answer answer = connection.askNow(std::move(call), handle.timeout);
  if (answer) {
    return answer.read<int>('b').value_or(0) != 0 ? AXError::success : AXError::failure;
  }
  if (answer.outcome == Outcome::noReply) {
    return AXError::cannotComplete;  // it may well have ended because of this
  }
  if (answer.outcome == Outcome::timedOut) {
    // Qt answers only when the dialog is closed that the action has opened, but serves others.
    auto question = connection.method(handle.object, accessible, "GetRole");
    const Answer alive = connection.askNow(std::move(question), handle.timeout);
    return alive ? AXError::success : AXError::cannotComplete;
  }
  return explain(connection, handle, answer.outcome, AXError::actionUnsupported);
}

/// Selects an element in its parent.
AXError select(Connection& connection, const Handle& handle) {
  const auto index =
      connection
          .askNow(connection.method(handle.object, accessible, "GetIndexInParent"), handle.timeout)
          .read<std::int32_t>('i');
  const auto answer =
      connection.askNow(connection.property(handle.object, accessible, "Parent"), handle.timeout);
  if (!index || !answer || sd_bus_message_enter_container(answer.message.get(), 'v', "(so)") <= 0) {
    return AXError::cannotComplete;
  }
  const auto parent = readObject(answer);
  if (!parent) {
    return AXError::invalidUIElement;
  }
  Message call = connection.method(*parent, "org.a11y.atspi.Selection", "SelectChild");
  sd_bus_message_append(call.get(), "i", *index);
  const Answer selected = connection.askNow(std::move(call), handle.timeout);
  if (selected) {
    return selected.read<int>('b').value_or(0) != 0 ? AXError::success : AXError::failure;
  }
  return explain(connection, handle, selected.outcome, AXError::actionUnsupported);
}

AXError writeNumber(Connection& connection, const Handle& handle, double number) {
  Message call = connection.method(handle.object, "org.freedesktop.DBus.Properties", "Set");
  sd_bus_message_append(call.get(), "ssv", valueInterface, "CurrentValue", "d", number);
  const Outcome outcome = connection.askNow(std::move(call), handle.timeout).outcome;
  return outcome == Outcome::answered
             ? AXError::success
             : explain(connection, handle, outcome, AXError::attributeUnsupported);
}

double readNumber(Connection& connection, const Handle& handle, const char* property) {
  auto question = connection.property(handle.object, valueInterface, property);
  return connection.askNow(std::move(question), handle.timeout)
      .readVariant<double>('d')
      .value_or(0);
}

/// The smallest step of a number between two limits.
double leastStep(Connection& connection, const Handle& handle, double least, double greatest) {
  // Qt gives a tenth of the whole range where it knows none.
  const double by =
      handle.toolkit == Toolkit::qt ? 0 : readNumber(connection, handle, "MinimumIncrement");
  constexpr double steps = 100;  // for those that don't say
  return by > 0 ? by : std::min(1.0, (greatest - least) / steps);
}

/// Moves a number one step, `direction` being 1 or -1.
AXError step(Connection& connection, const Handle& handle, double number, int direction) {
  const double least = readNumber(connection, handle, "MinimumValue");
  const double greatest = readNumber(connection, handle, "MaximumValue");
  const double by = leastStep(connection, handle, least, greatest);
  AXError result = AXError::success;
  for (const double distance : {by, 1.0}) {
    const double next = number + direction * distance;
    result = writeNumber(connection, handle,
                         least < greatest ? std::clamp(next, least, greatest) : next);
    // Where only whole numbers go, a part of one changes nothing.
    if (distance >= 1 || result != AXError::success ||
        readNumber(connection, handle, "CurrentValue") != number) {
      break;
    }
  }
  return result;
}

/// The number that a text says as a whole.
std::optional<double> numberIn(std::string_view text) {
  double number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, failed] = std::from_chars(text.data(), end, number);
  if (failed != std::errc() || stop != end || !std::isfinite(number)) {
    return std::nullopt;
  }
  return number;
}

bool takesNumbers(const Facts& facts) {
  return facts.number && AXNames::isAdjustable(facts.kind.role);
}

bool takesText(const Facts& facts) {
  return facts.hasEditableText && facts.has(State::editable);
}

AXError writeText(Connection& connection, const Handle& handle, const std::string& text) {
  Message call = connection.method(handle.object, editableText, "SetTextContents");
  sd_bus_message_append(call.get(), "s", text.c_str());
  const Answer answer = connection.askNow(std::move(call), handle.timeout);
  if (answer) {
    return answer.read<int>('b').value_or(0) != 0 ? AXError::success : AXError::failure;
  }
  return explain(connection, handle, answer.outcome, AXError::attributeUnsupported);
}

}  // namespace

AXError performAction(const AXElement& element, const std::string& action) {
  const Handle& handle = element.handle();
  const Target target = lookAt(handle);
  if (target.error != AXError::success) {
    return target.error;
  }
  const Facts& facts = target.facts;
  const auto names = actionNamesOf(facts);
  if (std::find(names.begin(), names.end(), action) == names.end()) {
    return AXError::actionUnsupported;
  }
  if (action == "AXRaise") {
    return raise(handle, facts);
  }
  // Some toolkits claim to have done what they refuse to do.
  if (!facts.isEnabled()) {
    return AXError::actionUnsupported;
  }
  const auto offered =
      std::find_if(facts.actions.begin(), facts.actions.end(), [&](const ToolkitAction& candidate) {
        return AXNames::actionName(candidate.name, facts.kind.role) == action;
      });
  // Qt's own steps are a tenth of the whole range.
  const bool isStep = action == "AXIncrement" || action == "AXDecrement";
  const bool isOwnStep = isStep && takesNumbers(facts) && handle.toolkit == Toolkit::qt;
  if (offered != facts.actions.end() && !isOwnStep) {
    return doAction(*target.connection, handle, offered->index);
  }
  if (isStep) {
    return step(*target.connection, handle, *facts.number, action == "AXIncrement" ? 1 : -1);
  }
  return select(*target.connection, handle);
}

bool isValueSettable(const AXElement& element) {
  const Target target = lookAt(element.handle());
  return target.error == AXError::success && target.facts.isEnabled() &&
         (takesText(target.facts) || takesNumbers(target.facts));
}

AXError setValue(const AXElement& element, const std::string& value) {
  const Handle& handle = element.handle();
  const Target target = lookAt(handle);
  if (target.error != AXError::success) {
    return target.error;
  }
  const auto number = numberIn(value);
  if (number && takesNumbers(target.facts)) {
    return writeNumber(*target.connection, handle, *number);
  }
  if (value.find('\0') != std::string::npos) {
    return AXError::illegalArgument;  // the bus carries no such text
  }
  if (takesText(target.facts)) {
    return writeText(*target.connection, handle, value);
  }
  return takesNumbers(target.facts) ? AXError::illegalArgument : AXError::attributeUnsupported;
}

AXError setFocused(const AXElement& element) {
  const Handle& handle = element.handle();
  const Target target = lookAt(handle);
  if (target.error != AXError::success) {
    return target.error;
  }
  if (!target.facts.has(State::focusable) || !target.facts.isEnabled()) {
    return AXError::attributeUnsupported;
  }
  Connection& connection = *target.connection;
  const Answer answer =
      connection.askNow(connection.method(handle.object, component, "GrabFocus"), handle.timeout);
  if (answer) {
    return answer.read<int>('b').value_or(0) != 0 ? AXError::success : AXError::failure;
  }
  return explain(connection, handle, answer.outcome, AXError::attributeUnsupported);
}

}  // namespace tervain::Platform
