#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <limits>

#include "Platform/Linux/Facts.h"
#include "Platform/Linux/Placement.h"

namespace tervain::Platform {

using AccessibilityBus::Answer;
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

/// How many of an element's children are looked at where it has very many, as tables have.
constexpr std::size_t maxListed = 256;
constexpr int maxOfMany = 64;

/// How many of the children that an element lists are looked at: the topmost, which come last.
constexpr std::size_t maxChildren = 1024;

/// How long all of a search may take, however many answers it gets just in time.
constexpr std::chrono::seconds maxSearching{10};

/// A search under way, and when it must end.
struct Search {
  Connection& connection;
  AccessibilityBus::Clock::time_point deadline = AccessibilityBus::Clock::now() + maxSearching;

  [[nodiscard]] Answer ask(Message question, const Handle& element) const {
    return connection.askNow(std::move(question), element.timeout, deadline);
  }
  [[nodiscard]] Outcome run(const Handle& element) const {
    return connection.run(element.timeout, deadline);
  }
};

/// By how many pixels in all an element may differ from the X window that shows it: borders do.
constexpr double popupMargin = 48;

/// An element and what its place and its role tell.
struct Item {
  Handle handle;
  Facts facts;
};

/// An application's elements that may lie at a point. `outcome` says how the reading went.
struct Items {
  Outcome outcome = Outcome::answered;
  std::vector<Item> list;
};

std::vector<Object> listChildren(const Search& search, const Item& parent, Outcome& outcome) {
  Connection& connection = search.connection;
  const Object& object = parent.handle.object;
  if (parent.facts.childCount <= maxListed) {
    const auto answer = search.ask(
        connection.method(object, "org.a11y.atspi.Accessible", "GetChildren"), parent.handle);
    outcome = answer.outcome;
    auto objects = readObjects(answer).first;
    if (objects.size() > maxChildren) {
      objects.erase(objects.begin(), objects.end() - maxChildren);
    }
    return objects;
  }
  std::vector<Object> first;
  for (int i = 0; i < maxOfMany; ++i) {
    Message question = connection.method(object, "org.a11y.atspi.Accessible", "GetChildAtIndex");
    sd_bus_message_append(question.get(), "i", i);
    connection.ask(std::move(question), [&first](const Answer& answer) {
      if (auto child = readObject(answer)) {
        first.push_back(std::move(*child));
      }
    });
  }
  outcome = search.run(parent.handle);
  return first;
}

/// The children of an element that show, the topmost last.
Items visibleChildren(const Search& search, const Item& parent) {
  Items children;
  for (Object& object : listChildren(search, parent, children.outcome)) {
    Handle handle = parent.handle;
    handle.object = std::move(object);
    if (handle.window.empty()) {
      handle.window = handle.object.path;
    }
    children.list.push_back({std::move(handle), {}});
  }
  FactsWanted wanted;
  wanted.parentRole = parent.facts.kind.role;
  wanted.placeOnly = true;
  for (Item& child : children.list) {
    readFacts(search.connection, child.handle, wanted, [&child](Outcome outcome, Facts facts) {
      if (outcome == Outcome::answered) {
        child.facts = std::move(facts);
      }
    });
  }
  if (search.run(parent.handle) == Outcome::timedOut) {
    children.outcome = Outcome::timedOut;
  }
  std::erase_if(children.list, [](const Item& child) { return !child.facts.shows(); });
  return children;
}

struct Toplevel {
  Item item;
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

bool lies(const Facts& facts, Local point) {
  if (!facts.extents) {
    return false;
  }
  const Extents& e = *facts.extents;
  return point.x >= e.x && point.y >= e.y && point.x < std::int64_t{e.x} + e.width &&
         point.y < std::int64_t{e.y} + e.height;
}

/// How far an element is from being what an X window shows.
double distance(const Facts& facts, const Placement& placement, const X11::Window& window) {
  if (!facts.extents) {
    return std::numeric_limits<double>::infinity();
  }
  const Point at = placement.position(*facts.extents);
  const Size size = placement.size(*facts.extents);
  return std::abs(at.x - window.place.x) + std::abs(at.y - window.place.y) +
         std::abs(size.width - window.place.width) + std::abs(size.height - window.place.height);
}

/// The toplevel at a point: the one most like the X window that is there.
std::optional<Toplevel> toplevelAt(Items& toplevels, const X11::Window& window, double x,
                                   double y) {
  std::optional<Toplevel> best;
  double least = 0;
  for (Item& item : toplevels.list) {
    const auto placement = placementOf(item.facts, &window);
    if (!placement || !lies(item.facts, toLocal(*placement, x, y))) {
      continue;
    }
    const double from = distance(item.facts, *placement, window);
    if (!best || from < least) {
      best = Toplevel{std::move(item), *placement};
      least = from;
    }
  }
  return best;
}

/// Whether an element is what has popped up at a point: either it fills the X window, or it is one
/// of the items of a menu that is no element itself.
bool isPopup(const Facts& facts, const Placement& placement, const X11::Window& window,
             Local point) {
  if (distance(facts, placement, window) <= popupMargin) {
    return true;
  }
  if (!AXNames::isMenuItem(facts.kind.role) || !lies(facts, point)) {
    return false;
  }
  const Point at = placement.position(*facts.extents);
  return window.place.contains(static_cast<int>(at.x), static_cast<int>(at.y));
}

/// Menus and lists that have popped up are windows to the X server, but in the tree they are far
/// down in the window they belong to.
std::optional<Item> popupAt(const Search& search, const Toplevel& toplevel,
                            const X11::Window& window, Local point) {
  std::deque<Item> parents{toplevel.item};
  for (int looked = 0; looked < maxSearched && !parents.empty(); ++looked) {
    Items children = visibleChildren(search, parents.front());
    parents.pop_front();
    for (Item& child : children.list) {
      if (isPopup(child.facts, toplevel.placement, window, point)) {
        return std::move(child);
      }
      if (child.facts.kind.hasChildren) {
        parents.push_back(std::move(child));
      }
    }
  }
  return std::nullopt;
}

/// The element below another that its toolkit finds at a point. Toolkits err: what does not show
/// there doesn't count.
std::optional<Item> askWhatIsAt(const Search& search, const Item& above, Local point) {
  Message question = search.connection.method(above.handle.object, "org.a11y.atspi.Component",
                                              "GetAccessibleAtPoint");
  constexpr std::uint32_t onScreen = 0;
  sd_bus_message_append(question.get(), "iiu", point.x, point.y, onScreen);
  auto object = readObject(search.ask(std::move(question), above.handle));
  if (!object ||
      (object->path == above.handle.object.path && object->bus == above.handle.object.bus)) {
    return std::nullopt;
  }
  Item item{above.handle, {}};
  item.handle.object = std::move(*object);
  FactsWanted wanted;
  wanted.parentRole = 0;
  wanted.placeOnly = true;
  FactsNow now = readFactsNow(search.connection, item.handle, wanted, search.deadline);
  if (now.outcome != Outcome::answered || !now.facts.shows() || !lies(now.facts, point)) {
    return std::nullopt;
  }
  item.facts = std::move(now.facts);
  return item;
}

/// The topmost child at a point by where the children say they are.
std::optional<Item> childAt(const Search& search, const Item& parent, Local point,
                            bool isPage = false) {
  Items children = visibleChildren(search, parent);
  const auto under = std::find_if(children.list.rbegin(), children.list.rend(),
                                  [point](const Item& child) { return lies(child.facts, point); });
  if (under != children.list.rend()) {
    return std::move(*under);
  }
  // A page lies beside its tab, although it is the tab's child.
  for (const Item& child : children.list) {
    if (!isPage && child.facts.kind.role == AXNames::pageTab && child.facts.kind.hasChildren) {
      if (auto page = childAt(search, child, point, /*isPage=*/true)) {
        return page;
      }
    }
  }
  return std::nullopt;
}

/// Whether to ask an element's toolkit first: Qt finds the innermost element in one step, and
/// tables have too many cells to look at. GTK 3 does not know what lies over what.
bool isWorthAsking(const Item& item) {
  return item.handle.toolkit == Toolkit::qt || item.handle.toolkit == Toolkit::other ||
         item.facts.has(AXNames::State::managesDescendants);
}

/// Down to the innermost element at a point.
Handle descend(const Search& search, Item at, Local point) {
  for (int depth = 0; depth < maxDescent; ++depth) {
    auto next = isWorthAsking(at) ? askWhatIsAt(search, at, point) : std::nullopt;
    if (!next) {
      next = childAt(search, at, point);
    }
    if (!next) {
      break;
    }
    at = std::move(*next);
  }
  return std::move(at.handle);
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
  Items toplevels = visibleChildren(search, {application.handle(), {}});
  auto toplevel = toplevelAt(toplevels, *window, x, y);
  if (!toplevel) {
    return errorOf(toplevels.outcome);
  }
  const Local point = toLocal(toplevel->placement, x, y);
  const double off = distance(toplevel->item.facts, toplevel->placement, *window);
  if (!window->isManaged && off > popupMargin) {
    auto popup = popupAt(search, *toplevel, *window, point);
    if (!popup) {
      return AXError::noValue;  // such as Qt's context menus, which are in no tree
    }
    toplevel->item = std::move(*popup);
  }
  return AXElement(std::make_shared<Handle>(descend(search, std::move(toplevel->item), point)));
}

}  // namespace tervain::Platform
