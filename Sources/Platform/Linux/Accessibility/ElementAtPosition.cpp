#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <deque>
#include <type_traits>

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
  Deadline deadline = after(maxSearching);

  /// Makes one of AT-SPI's calls to an element.
  template <class T, class... Parameters>
  [[nodiscard]] Reply<T> ask(const Handle& element,
                             Call<T> (*call)(const Connection&, const Object&, Parameters...),
                             std::type_identity_t<Parameters>... arguments) const {
    return connection.askNow(call(connection, element.object, arguments...), element.timeout,
                             deadline);
  }
  [[nodiscard]] Outcome run(const Handle& element) const {
    return connection.run(element.timeout, deadline);
  }
};

/// An element and what its place and its role tell.
struct Item {
  Handle handle;
  Snapshot snapshot;
};

/// An application's elements that may lie at a point. `outcome` says how the reading went.
struct Items {
  Outcome outcome = Outcome::answered;
  std::vector<Item> list;
};

std::vector<Object> listChildren(const Search& search, const Item& parent, Outcome& outcome) {
  Connection& connection = search.connection;
  const Object& object = parent.handle.object;
  if (parent.snapshot.childCount <= maxListed) {
    auto listed = search.ask(parent.handle, Atspi::getChildren);
    outcome = listed.outcome;
    std::vector<Object> objects = std::move(listed.value.first);
    if (objects.size() > maxChildren) {
      objects.erase(objects.begin(), objects.end() - maxChildren);
    }
    return objects;
  }
  std::vector<Object> first;
  for (int i = 0; i < maxOfMany; ++i) {
    connection.ask(Atspi::getChildAtIndex(connection, object, i),
                   [&first](Reply<std::optional<Object>> child) {
                     if (child.value) {
                       first.push_back(std::move(*child.value));
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
  const SnapshotRequest request{.parentRole = parent.snapshot.kind.role, .placeOnly = true};
  for (Item& child : children.list) {
    readSnapshot(search.connection, child.handle, request, [&child](SnapshotReply reply) {
      if (reply) {
        child.snapshot = std::move(reply.value);
      }
    });
  }
  if (search.run(parent.handle) == Outcome::timedOut) {
    children.outcome = Outcome::timedOut;
  }
  std::erase_if(children.list, [](const Item& child) { return !child.snapshot.shows(); });
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

bool lies(const Snapshot& snapshot, Local point) {
  return snapshot.extents && snapshot.extents->contains(point.x, point.y);
}

/// The toplevel at a point: the one most like the X window that is there.
std::optional<Toplevel> toplevelAt(const Items& toplevels, const X11::Window& window, double x,
                                   double y) {
  std::optional<Toplevel> best;
  double least = 0;
  for (const Item& item : toplevels.list) {
    const auto placement = placementOf(item.snapshot, &window);
    if (!placement || !lies(item.snapshot, toLocal(*placement, x, y))) {
      continue;
    }
    const double from = distance(item.snapshot, *placement, window);
    if (!best || from < least) {
      best = Toplevel{item, *placement};
      least = from;
    }
  }
  return best;
}

/// Whether an element is an item of a menu or a list that a window shows, at a point.
bool isItemIn(const X11::Window& window, const Snapshot& snapshot, const Placement& placement,
              Local point) {
  if (!Roles::isMenuItem(snapshot.kind.role) || !lies(snapshot, point)) {
    return false;
  }
  const Point at = placement.position(*snapshot.extents);
  return window.place.contains(static_cast<int>(at.x), static_cast<int>(at.y));
}

/// Whether an element is what has popped up at a point: either it fills the X window, or it is one
/// of the items of a menu that is no element itself.
bool isPopup(const X11::Window& window, const Snapshot& snapshot, const Placement& placement,
             Local point) {
  return distance(snapshot, placement, window) <= windowMargin ||
         popoverPlacement(snapshot, window) || isItemIn(window, snapshot, placement, point);
}

/// Whether an element lies beside a window or reaches into it.
bool touches(const Snapshot& snapshot, const Placement& placement, const X11::Window& window) {
  if (!snapshot.extents) {
    return false;
  }
  const Point at = placement.position(*snapshot.extents);
  const Size size = placement.size(*snapshot.extents);
  const X11::Rectangle& place = window.place;
  return at.x <= place.x + place.width + windowMargin &&
         place.x <= at.x + size.width + windowMargin &&
         at.y <= place.y + place.height + windowMargin &&
         place.y <= at.y + size.height + windowMargin;
}

/// Menus and lists that have popped up are windows to the X server, but in the tree they are far
/// down in the window they belong to: mostly in something that they have popped up beside.
/// `is` says which element of the toplevel it is.
std::optional<Item> findPopup(const Search& search, const Item& toplevel,
                              const Placement& placement, const X11::Window& window, Local point,
                              decltype(isPopup)* is) {
  std::deque<Item> parents{toplevel};
  for (int looked = 0; looked < maxSearched && !parents.empty(); ++looked) {
    Items children = visibleChildren(search, parents.front());
    parents.pop_front();
    for (Item& child : children.list) {
      if (is(window, child.snapshot, placement, point)) {
        return std::move(child);
      }
      if (child.snapshot.kind.hasChildren) {
        const bool isNear = touches(child.snapshot, placement, window);
        parents.insert(isNear ? parents.begin() : parents.end(), std::move(child));
      }
    }
  }
  return std::nullopt;
}

/// The element below another that its toolkit finds at a point. Toolkits err: what does not show
/// there doesn't count.
std::optional<Item> askWhatIsAt(const Search& search, const Item& above, Local point) {
  const Object& asked = above.handle.object;
  auto object = search.ask(above.handle, Atspi::getAccessibleAtPoint, point.x, point.y).value;
  if (!object || (object->path == asked.path && object->bus == asked.bus)) {
    return std::nullopt;
  }
  Item item{above.handle, {}};
  item.handle.object = std::move(*object);
  const SnapshotRequest request{.parentRole = Atspi::Role::invalid, .placeOnly = true};
  auto read = readSnapshotNow(search.connection, item.handle, request, search.deadline);
  if (!read || !read.value.shows() || !lies(read.value, point)) {
    return std::nullopt;
  }
  item.snapshot = std::move(read.value);
  return item;
}

/// The topmost child at a point by where the children say they are.
std::optional<Item> childAt(const Search& search, const Item& parent, Local point,
                            bool isPage = false) {
  Items children = visibleChildren(search, parent);
  const auto under =
      std::find_if(children.list.rbegin(), children.list.rend(),
                   [point](const Item& child) { return lies(child.snapshot, point); });
  if (under != children.list.rend()) {
    return std::move(*under);
  }
  // A page lies beside its tab, although it is the tab's child.
  for (const Item& child : children.list) {
    if (!isPage && child.snapshot.kind.role == Atspi::Role::pageTab &&
        child.snapshot.kind.hasChildren) {
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
         isBrowser(item.handle.toolkit) || item.snapshot.has(Atspi::State::managesDescendants);
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

/// The item at a point of a list whose window, a toplevel, has no elements in it: Chromium's are in
/// the page.
std::optional<Handle> itemInPage(const Search& search, const Items& toplevels,
                                 const X11::Window& window, Local point) {
  for (const Item& toplevel : toplevels.list) {
    if (isBrowser(toplevel.handle.toolkit)) {
      if (auto item = findPopup(search, toplevel, Placement{}, window, point, isItemIn)) {
        return std::move(item->handle);
      }
    }
  }
  return std::nullopt;
}

}  // namespace

std::variant<AXElement, AXError> elementAtPosition(float x, float y,
                                                   std::chrono::milliseconds messagingTimeout) {
  auto x11 = X11::Session::open(after(X11::lookLimit));
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
  const Items toplevels = visibleChildren(search, {application.handle(), {}});
  auto toplevel = toplevelAt(toplevels, *window, x, y);
  if (!toplevel) {
    return isGivenUp(toplevels.outcome) ? AXError::cannotComplete : AXError::noValue;
  }
  Local point = toLocal(toplevel->placement, x, y);
  const double off = distance(toplevel->item.snapshot, toplevel->placement, *window);
  if (!window->isManaged && off > windowMargin) {
    auto popup = findPopup(search, toplevel->item, toplevel->placement, *window, point, isPopup);
    if (!popup) {
      return AXError::noValue;  // such as Qt's context menus, which are in no tree
    }
    if (const auto inPopover = popoverPlacement(popup->snapshot, *window)) {
      point = toLocal(*inPopover, x, y);
      popup->handle.window = popup->handle.object.path;  // by which its elements are placed
    }
    toplevel->item = std::move(*popup);
  }
  const std::string top = toplevel->item.handle.object.path;
  Handle found = descend(search, std::move(toplevel->item), point);
  if (!window->isManaged && found.object.path == top) {
    found = itemInPage(search, toplevels, *window, point).value_or(found);
  }
  return AXElement(std::make_shared<Handle>(std::move(found)));
}

}  // namespace tervain::Platform
