#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <deque>

#include "Platform/Linux/Facts.h"
#include "Platform/Linux/Placement.h"

namespace tervain::Platform {

using AccessibilityBus::Connection;
using AccessibilityBus::Message;
using AccessibilityBus::Object;
using AccessibilityBus::Outcome;
using Handle = AXElement::Handle;

namespace {

/// How deep the search for the innermost element goes, for applications that answer in circles.
constexpr int maxDescent = 64;

/// How many elements' children are searched for a menu that has popped up.
constexpr int maxSearched = 300;

/// How many children of an element are looked at: the topmost, which come last.
constexpr std::size_t maxChildren = 1024;

/// How long all of a search may take, however many answers it gets just in time.
constexpr std::chrono::seconds maxSearching{10};

/// A search under way, and when it must end.
struct Search {
  Connection& connection;
  AccessibilityBus::Clock::time_point deadline = AccessibilityBus::Clock::now() + maxSearching;

  [[nodiscard]] AccessibilityBus::Answer ask(Message question, const Handle& element) const {
    return connection.askNow(std::move(question), element.timeout, deadline);
  }
};

/// By how many pixels in all an element may differ from the X window that shows it: borders do.
constexpr double popupMargin = 48;

struct Child {
  Handle handle;
  Facts facts;
};

/// An application's elements that may lie at a point. `outcome` says how the reading went.
struct Children {
  Outcome outcome = Outcome::answered;
  std::vector<Child> list;
};

/// The children of an element that show, the topmost last.
Children visibleChildren(const Search& search, const Handle& parent) {
  Connection& connection = search.connection;
  const auto answer = search.ask(
      connection.method(parent.object, "org.a11y.atspi.Accessible", "GetChildren"), parent);
  Children children{answer.outcome, {}};
  auto objects = readObjects(answer).first;
  for (std::size_t i = objects.size() - std::min(objects.size(), maxChildren); i < objects.size();
       ++i) {
    Handle handle = parent;
    handle.object = std::move(objects[i]);
    if (handle.window.empty()) {
      handle.window = handle.object.path;
    }
    children.list.push_back({std::move(handle), {}});
  }
  for (Child& child : children.list) {
    readFacts(connection, child.handle, {0, 0, false}, [&child](Outcome outcome, Facts facts) {
      if (outcome == Outcome::answered) {
        child.facts = std::move(facts);
      }
    });
  }
  if (connection.run(parent.timeout, search.deadline) == Outcome::timedOut) {
    children.outcome = Outcome::timedOut;
  }
  std::erase_if(children.list,
                [](const Child& child) { return !child.facts.shows() || !child.facts.extents; });
  return children;
}

struct Toplevel {
  Handle handle;
  Facts facts;
  Placement placement;
};

/// A point of the screen in a toplevel's own units.
struct Local {
  int x;
  int y;
};

Local toLocal(const Placement& placement, double x, double y) {
  return {static_cast<int>(std::floor((x - placement.origin.x) / placement.scale)),
          static_cast<int>(std::floor((y - placement.origin.y) / placement.scale))};
}

bool contains(const Extents& e, Local point) {
  return point.x >= e.x && point.y >= e.y && point.x < std::int64_t{e.x} + e.width &&
         point.y < std::int64_t{e.y} + e.height;
}

/// How far a toplevel is from being what an X window shows.
double distance(const Toplevel& toplevel, const X11::Window& window) {
  const Point at = toplevel.placement.position(*toplevel.facts.extents);
  const Size size = toplevel.placement.size(*toplevel.facts.extents);
  return std::abs(at.x - window.place.x) + std::abs(at.y - window.place.y) +
         std::abs(size.width - window.place.width) + std::abs(size.height - window.place.height);
}

/// The toplevel at a point: the one most like the X window that is there.
std::optional<Toplevel> toplevelAt(Children& toplevels, const X11::Window& window, double x,
                                   double y) {
  std::optional<Toplevel> best;
  for (Child& child : toplevels.list) {
    const auto placement = placementOf(child.facts, &window);
    if (!placement || !contains(*child.facts.extents, toLocal(*placement, x, y))) {
      continue;
    }
    Toplevel candidate{std::move(child.handle), std::move(child.facts), *placement};
    if (!best || distance(candidate, window) < distance(*best, window)) {
      best = std::move(candidate);
    }
  }
  return best;
}

/// Whether an element is what has popped up at a point: either it fills the X window, or it is one
/// of the items of a menu that is no element itself.
bool isPopup(const Toplevel& candidate, const X11::Window& window, Local point) {
  if (distance(candidate, window) <= popupMargin) {
    return true;
  }
  const Point at = candidate.placement.position(*candidate.facts.extents);
  return AXNames::isMenuItem(candidate.facts.kind.role) &&
         contains(*candidate.facts.extents, point) &&
         window.place.contains(static_cast<int>(at.x), static_cast<int>(at.y));
}

/// Menus and lists that have popped up are windows to the X server, but in the tree they are far
/// down in the window they belong to.
std::optional<Toplevel> popupAt(const Search& search, const Toplevel& toplevel,
                                const X11::Window& window, Local point) {
  std::deque<Handle> parents{toplevel.handle};
  for (int looked = 0; looked < maxSearched && !parents.empty(); ++looked) {
    Children children = visibleChildren(search, parents.front());
    parents.pop_front();
    for (Child& child : children.list) {
      Toplevel candidate{std::move(child.handle), std::move(child.facts), toplevel.placement};
      if (isPopup(candidate, window, point)) {
        return candidate;
      }
      if (candidate.facts.kind.hasChildren) {
        parents.push_back(std::move(candidate.handle));
      }
    }
  }
  return std::nullopt;
}

/// Down to the innermost element as the toolkit finds it: in one step or one level at a time.
Handle descendByAsking(const Search& search, const Toplevel& toplevel, Local point) {
  Handle at = toplevel.handle;
  for (int depth = 0; depth < maxDescent; ++depth) {
    Message question =
        search.connection.method(at.object, "org.a11y.atspi.Component", "GetAccessibleAtPoint");
    constexpr std::uint32_t onScreen = 0;
    sd_bus_message_append(question.get(), "iiu", point.x, point.y, onScreen);
    auto next = readObject(search.ask(std::move(question), at));
    if (!next || (next->path == at.object.path && next->bus == at.object.bus)) {
      break;
    }
    at.object = std::move(*next);
  }
  return at;
}

/// Down to the innermost element by where the elements say they are.
Handle descendByPlace(const Search& search, const Toplevel& toplevel, Local point) {
  Handle at = toplevel.handle;
  for (int depth = 0; depth < maxDescent; ++depth) {
    Children children = visibleChildren(search, at);
    const auto under =
        std::find_if(children.list.rbegin(), children.list.rend(),
                     [point](const Child& child) { return contains(*child.facts.extents, point); });
    if (under == children.list.rend()) {
      break;
    }
    at = std::move(under->handle);
  }
  return at;
}

AXError errorOf(Outcome outcome) {
  return outcome == Outcome::timedOut || outcome == Outcome::noBus ? AXError::cannotComplete
                                                                   : AXError::noValue;
}

}  // namespace

std::variant<AXElement, AXError> elementAtPosition(float x, float y,
                                                   std::chrono::milliseconds messagingTimeout) {
  auto x11 = X11::Session::open(X11::Clock::now() + X11::lookLimit);
  auto* const connection = Connection::ofThisThread();
  if (!x11 || !connection) {
    return AXError::cannotComplete;
  }
  // The X protocol's coordinates have 16 bits.
  constexpr float limit = 32767;
  if (std::abs(x) > limit || std::abs(y) > limit) {
    return AXError::noValue;
  }
  const auto window = X11::windowAt(*x11, static_cast<int>(x), static_cast<int>(y));
  if (!window) {
    return AXError::noValue;
  }
  const AXElement application = applicationElement(window->pid, messagingTimeout);
  if (application.handle().object.bus.empty()) {
    return AXError::noValue;
  }
  if (application.handle().wasSilent) {
    return AXError::cannotComplete;
  }
  const Search search{*connection};
  Children toplevels = visibleChildren(search, application.handle());
  auto toplevel = toplevelAt(toplevels, *window, x, y);
  if (!toplevel) {
    return errorOf(toplevels.outcome);
  }
  const Local point = toLocal(toplevel->placement, x, y);
  if (!window->isManaged && distance(*toplevel, *window) > popupMargin) {
    if (auto popup = popupAt(search, *toplevel, *window, point)) {
      toplevel = std::move(popup);
    }
  }
  return AXElement(std::make_shared<Handle>(toplevel->handle.toolkit == Toolkit::gtk4
                                                ? descendByPlace(search, *toplevel, point)
                                                : descendByAsking(search, *toplevel, point)));
}

}  // namespace tervain::Platform
