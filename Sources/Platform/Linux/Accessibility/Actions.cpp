#include <algorithm>
#include <charconv>
#include <cmath>
#include <string_view>
#include <thread>
#include <type_traits>
#include <variant>

#include "Platform/Linux/Accessibility/Placement.h"
#include "Platform/Linux/Accessibility/SnapshotReader.h"

namespace tervain::Platform {

using namespace Linux;

using AccessibilityBus::Call;
using AccessibilityBus::Connection;
using AccessibilityBus::Object;
using AccessibilityBus::Outcome;
using AccessibilityBus::Reply;
using Handle = AXElement::Handle;

namespace {

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

/// An element that is about to be acted on: what it has just said about itself, by which it is
/// there and shows.
struct Target {
  const Handle& handle;
  Connection& connection;
  Snapshot snapshot;

  /// Makes one of AT-SPI's calls to it.
  template <class T, class... Parameters>
  [[nodiscard]] Reply<T> ask(Call<T> (*call)(const Connection&, const Object&, Parameters...),
                             std::type_identity_t<Parameters>... arguments) const {
    return connection.askNow(call(connection, handle.object, arguments...), handle.timeout);
  }
};

/// The error says why nothing can be done to the element.
std::variant<Target, AXError> lookAt(const AXElement& element) {
  const Handle& handle = element.handle();
  if (handle.object.bus.empty()) {
    return AXError::invalidUIElement;
  }
  Connection* const connection = Connection::ofThisThread();
  if (!connection) {
    return AXError::cannotComplete;
  }
  SnapshotReply read = readSnapshotNow(*connection, handle);
  if (!read) {
    return errorOf(read.outcome);
  }
  // Closed dialogs and what is in them often live on unseen.
  if (!read.value.shows()) {
    return AXError::invalidUIElement;
  }
  return Target{handle, *connection, std::move(read.value)};
}

/// What a request that failed means, given that the element was there a moment ago: `unsupported`
/// when it still is.
AXError explain(const Target& target, Outcome outcome, AXError unsupported) {
  if (outcome != Outcome::unknown && outcome != Outcome::refused) {
    return errorOf(outcome);
  }
  const Outcome alive = target.ask(Atspi::getRole).outcome;
  return alive == Outcome::answered ? unsupported : errorOf(alive);
}

/// What a request came to that is answered with whether it was done.
AXError resultOf(const Target& target, const Reply<bool>& isDone, AXError unsupported) {
  if (isDone) {
    return isDone.value ? AXError::success : AXError::failure;
  }
  return explain(target, isDone.outcome, unsupported);
}

AXError raise(const Target& target) {
  auto x11 = X11::Session::open(after(X11::lookLimit));
  if (!x11) {
    return AXError::cannotComplete;
  }
  const auto windows = X11::windowsOf(*x11, target.handle.pid);
  const X11::Window* const window = windowShowing(target.snapshot, windows);
  if (!window) {
    return AXError::actionUnsupported;
  }
  X11::activate(*x11, window->id);
  return AXError::success;
}

AXError doAction(const Target& target, int index) {
  const auto isDone = target.ask(Atspi::doAction, index);
  if (isDone.outcome == Outcome::noReply) {
    return AXError::cannotComplete;  // it may well have ended because of this
  }
  if (isDone.outcome == Outcome::timedOut) {
    // Qt answers only when the dialog is closed that the action has opened, but serves others.
    return target.ask(Atspi::getRole) ? AXError::success : AXError::cannotComplete;
  }
  return resultOf(target, isDone, AXError::actionUnsupported);
}

/// Selects an element in its parent.
AXError select(const Target& target) {
  const auto index = target.ask(Atspi::getIndexInParent);
  const auto parent = target.ask(Atspi::getParent);
  if (!index.value || !parent) {
    return AXError::cannotComplete;
  }
  if (!parent.value) {
    return AXError::invalidUIElement;
  }
  Connection& connection = target.connection;
  const auto isDone = connection.askNow(Atspi::selectChild(connection, *parent.value, *index.value),
                                        target.handle.timeout);
  return resultOf(target, isDone, AXError::actionUnsupported);
}

/// How long what an application or the window manager has taken on may take to show, and how often
/// to look.
constexpr std::chrono::milliseconds effectLimit{500};
constexpr std::chrono::milliseconds effectInterval{10};

template <class Look>
bool awaitEffect(Look isThere) {
  const auto deadline = after(effectLimit);
  while (!isThere()) {
    if (Clock::now() >= deadline) {
      return false;
    }
    std::this_thread::sleep_for(effectInterval);
  }
  return true;
}

/// What a confirmed write has come to: applications confirm without doing anything. `hasEffect`
/// looks at the element, and says yes where that can't be told. Browsers pass a write on to the
/// process of the page.
template <class Look>
AXError confirm(const Target& target, Look hasEffect) {
  const bool isDone = isBrowser(target.handle.toolkit) ? awaitEffect(hasEffect) : hasEffect();
  return isDone ? AXError::success : AXError::attributeUnsupported;
}

AXError writeNumber(const Target& target, double number) {
  const Outcome outcome = target.ask(Atspi::setCurrentValue, number).outcome;
  if (outcome != Outcome::answered) {
    return explain(target, outcome, AXError::attributeUnsupported);
  }
  const double before = *target.snapshot.number;
  return confirm(target, [&] {
    const auto now = target.ask(Atspi::getCurrentValue).value;
    return !now || *now != before || *now == number;
  });
}

/// A text as it is now, or the beginning of a long one.
std::optional<std::string> currentText(const Target& target) {
  const auto count = target.ask(Atspi::getCharacterCount);
  auto text = target.ask(Atspi::getText, 0,
                         std::min(count.value, static_cast<int>(AccessibilityBus::maxText)));
  return count && text ? std::optional(readableText(std::move(text.value), target.handle.toolkit))
                       : std::nullopt;
}

/// Whether a text shows as the one that was written. Of a password only the length does.
bool isShownAs(const std::string& text, const std::string& shown, Atspi::Role role) {
  if (role == Atspi::Role::passwordText) {
    return countCharacters(text) == countCharacters(shown);
  }
  return shown == text || (shown.size() > AccessibilityBus::maxText / 2 && text.starts_with(shown));
}

AXError writeText(const Target& target, const std::string& text) {
  const auto before = currentText(target);
  const auto isDone = target.ask(Atspi::setTextContents, text);
  const AXError result = resultOf(target, isDone, AXError::attributeUnsupported);
  if (result != AXError::success || !before) {
    return result;
  }
  const std::string written = readableText(text, target.handle.toolkit);
  return confirm(target, [&] {
    const auto now = currentText(target);
    return !now || *now != *before || isShownAs(written, *now, target.snapshot.kind.role);
  });
}

/// The smallest step of a number between two limits.
double leastStep(const Target& target, double least, double greatest) {
  // Qt gives a tenth of the whole range where it knows none.
  const double by = target.handle.toolkit == Toolkit::qt
                        ? 0
                        : target.ask(Atspi::getMinimumIncrement).value.value_or(0);
  constexpr double steps = 100;  // for those that don't say
  return by > 0 ? by : std::min(1.0, (greatest - least) / steps);
}

/// Moves the number one step, `direction` being 1 or -1.
AXError step(const Target& target, int direction) {
  const double number = *target.snapshot.number;
  const double least = target.ask(Atspi::getMinimumValue).value.value_or(0);
  const double greatest = target.ask(Atspi::getMaximumValue).value.value_or(0);
  const double by = leastStep(target, least, greatest);
  AXError result = AXError::success;
  for (const double distance : {by, 1.0}) {
    const double wanted = number + direction * distance;
    const double next = least < greatest ? std::clamp(wanted, least, greatest) : wanted;
    if (next == number) {
      return AXError::success;  // it is at its limit
    }
    result = writeNumber(target, next);
    // Where only whole numbers go, a part of one changes nothing.
    if (distance >= 1 || result != AXError::attributeUnsupported) {
      break;
    }
  }
  return result;
}

AXError perform(const Target& target, std::string_view action) {
  const Snapshot& snapshot = target.snapshot;
  const auto names = snapshot.actionNames();
  if (std::find(names.begin(), names.end(), action) == names.end()) {
    return AXError::actionUnsupported;
  }
  if (action == "AXRaise") {
    return raise(target);
  }
  // Some toolkits claim to have done what they refuse to do.
  if (!snapshot.isEnabled()) {
    return AXError::actionUnsupported;
  }
  const Atspi::Action* const offered = snapshot.actionNamed(action);
  // Qt's own steps are a tenth of the whole range.
  const bool isStep = action == "AXIncrement" || action == "AXDecrement";
  const bool isOwnStep = isStep && snapshot.takesSteps() && snapshot.toolkit == Toolkit::qt;
  if (offered && !isOwnStep) {
    return doAction(target, offered->index);
  }
  if (isStep) {
    return step(target, action == "AXIncrement" ? 1 : -1);
  }
  return select(target);
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

AXError write(const Target& target, const std::string& value) {
  const bool takesNumbers = target.snapshot.takesNumbers();
  const auto number = numberIn(value);
  if (number && takesNumbers) {
    const AXError result = writeNumber(target, *number);
    const bool isRoundedToWhatItWas = std::round(*number) == *target.snapshot.number;
    return result == AXError::attributeUnsupported && isRoundedToWhatItWas ? AXError::success
                                                                           : result;
  }
  if (value.find('\0') != std::string::npos) {
    return AXError::illegalArgument;  // the bus carries no such text
  }
  if (target.snapshot.takesText()) {
    return writeText(target, value);
  }
  return target.snapshot.takesSteps() ? AXError::illegalArgument : AXError::attributeUnsupported;
}

/// Brings the window that an element is in to the front if another one has the keyboard: GTK 3 and
/// Qt do so by themselves.
void activateWindow(const Target& target) {
  auto x11 = X11::Session::open(after(X11::lookLimit));
  if (!x11) {
    return;
  }
  Handle toplevel = target.handle;
  toplevel.object.path = toplevel.window;
  toplevel.row.reset();
  const Snapshot read = readSnapshotNow(target.connection, toplevel).value;
  auto windows = X11::windowsOf(*x11, target.handle.pid);
  std::reverse(windows.begin(), windows.end());  // of two alike it is the one on top
  const X11::Window* const window = windowShowing(read, windows);
  if (window && X11::activeWindow(*x11) != window->id) {
    X11::activate(*x11, window->id);
    awaitEffect([&] { return X11::activeWindow(*x11) == window->id; });
  }
}

AXError focus(const Target& target) {
  if (!target.snapshot.has(Atspi::State::focusable) || !target.snapshot.isEnabled()) {
    return AXError::attributeUnsupported;
  }
  const auto isDone = target.ask(Atspi::grabFocus);
  const AXError result = resultOf(target, isDone, AXError::attributeUnsupported);
  if (result == AXError::success) {
    activateWindow(target);
  }
  return result;
}

/// Has the first cell of a row that takes it do what is asked of the row, for which AT-SPI has no
/// object.
template <class Act>
AXError actOnCell(const Target& row, Act act) {
  AXError result = AXError::attributeUnsupported;
  for (const Child& child : row.snapshot.children) {
    Handle cell = row.handle;
    cell.object = child.object;
    cell.row.reset();
    SnapshotReply read = readSnapshotNow(row.connection, cell);
    if (!read || !read.value.shows() || Roles::isRowHeader(read.value.kind.role)) {
      continue;
    }
    result = act(Target{cell, row.connection, std::move(read.value)});
    if (result != AXError::attributeUnsupported && result != AXError::actionUnsupported) {
      break;
    }
  }
  return result;
}

/// Does something to an element, if that is there.
template <class Act>
AXError actOn(const AXElement& element, Act act) {
  const auto looked = lookAt(element);
  if (const auto* error = std::get_if<AXError>(&looked)) {
    return *error;
  }
  const auto& target = std::get<Target>(looked);
  return target.handle.row ? actOnCell(target, act) : act(target);
}

}  // namespace

AXError performAction(const AXElement& element, const std::string& action) {
  return actOn(element, [&action](const Target& target) { return perform(target, action); });
}

bool isValueSettable(const AXElement& element) {
  const auto target = lookAt(element);
  const auto* found = std::get_if<Target>(&target);
  return found && found->snapshot.isEnabled() &&
         (found->snapshot.takesText() || found->snapshot.takesNumbers());
}

AXError setValue(const AXElement& element, const std::string& value) {
  return actOn(element, [&value](const Target& target) { return write(target, value); });
}

AXError setFocused(const AXElement& element) {
  return actOn(element, focus);
}

}  // namespace tervain::Platform
