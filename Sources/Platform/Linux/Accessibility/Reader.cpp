#include <algorithm>
#include <map>
#include <set>
#include <unordered_map>

#include "Platform/Linux/Accessibility/Placement.h"
#include "Platform/Linux/Accessibility/SnapshotReader.h"
#include "Platform/Patience.h"

namespace tervain::Platform {

using namespace Linux;

using AccessibilityBus::Connection;
using AccessibilityBus::Outcome;

namespace {

/// How many elements are asked about at once. More would only wait in the application's queue.
constexpr std::size_t maxUnderWay = 48;

/// How many objects the lists of children may hold in all.
constexpr std::size_t maxObjects = 131'072;

/// From which depth on a walk sees so many elements that it pays to ask about all at once.
constexpr int deepWalk = 4;

/// With so few elements under way, most of the time is spent waiting for single answers.
constexpr std::size_t fewUnderWay = 6;

/// Where an element is in its tree: the index of each ancestor among its siblings, and its own. In
/// lexicographic order these are in the order of a depth-first walk.
using Path = std::vector<std::uint32_t>;

struct Node {
  enum class Progress { unread, read, failed };

  AXElement element;
  Node* parent = nullptr;
  Path path;
  Progress progress = Progress::unread;
  Snapshot snapshot;
  std::vector<Node*> children;  ///< those that were asked about; null if they don't show
  std::size_t hiddenChildren = 0;
  bool isListed = false;  ///< whether the walk has it from its parent
};

std::optional<AXValue> textAttribute(std::string_view text) {
  return text.empty() ? std::nullopt : std::optional<AXValue>(std::string(text));
}

}  // namespace

/// What is read ahead follows the walk: elements are asked about in its order, so that those far to
/// the right, which the walk may never reach, come last.
struct AXReader::State {
  State() : connection_(Connection::ofThisThread()) {}
  State(const AXElement& root, const AXWalk& walk)
      : connection_(Connection::ofThisThread()),
        walk_(walk),
        patience_(root.handle().wasSilent ? 1 : 0) {
    if (root.handle().object.bus.empty()) {
      connection_ = nullptr;
      return;
    }
    const AXElement::Handle& handle = root.handle();
    if (connection_ && handle.toolkit == Toolkit::gtk3) {
      straight_ = straightTo(*connection_, handle);
      connection_ = straight_ ? straight_.get() : connection_;
    }
    if (connection_ && handle.toolkit == Toolkit::gtk4 && walk_->maxDepth >= deepWalk) {
      readItems(handle);
    }
    Node& node = add(root, nullptr, {});
    frontier_.emplace(node.path, &node);
    readAhead(node);
  }

  /// The element, read. Null when that can't be done.
  Node* read(const AXElement& element) {
    Node& node = find(element);
    if (node.progress == Node::Progress::unread && frontier_.contains(node.path)) {
      readAhead(node);
    }
    if (node.progress == Node::Progress::unread && !hopeless()) {
      startReading(node);
      run(element.handle());
    }
    return node.progress == Node::Progress::read ? &node : nullptr;
  }

  /// The children that show.
  static AXValue children(const Node& node) {
    AXElements list{{}, node.snapshot.childCount - node.hiddenChildren};
    for (Node* child : node.children) {
      if (child) {
        child->isListed = true;
        list.first.push_back(child->element);
      }
    }
    return list;
  }

  /// How the element lies on the screen; found out once for every window.
  std::optional<Placement> placement(const Node& node) {
    const AXElement::Handle& handle = node.element.handle();
    if (handle.window.empty() || handle.toolkit == Toolkit::other || isBrowser(handle.toolkit)) {
      return Placement{};
    }
    auto known = placements_.find(handle.window);
    if (known == placements_.end()) {
      known = placements_.emplace(handle.window, findPlacement(node)).first;
    }
    const auto inPopover = known->second ? placementInPopover(node) : std::nullopt;
    return inPopover ? inPopover : known->second;
  }

 private:
  /// Whether it would be in vain to ask any more.
  [[nodiscard]] bool hopeless() const { return !connection_ || patience_.isExhausted(); }

  Node& add(const AXElement& element, Node* parent, Path path) {
    auto node = std::make_unique<Node>(Node{element, parent, std::move(path), {}, {}, {}});
    return *(nodes_[&element.handle()] = std::move(node));
  }

  Node& find(const AXElement& element) {
    const auto found = nodes_.find(&element.handle());
    return found == nodes_.end() ? add(element, nullptr, {}) : *found->second;
  }

  void run(const AXElement::Handle& handle) {
    const auto started = Clock::now();
    const Outcome outcome = connection_->run(handle.timeout, started + patience_.left());
    patience_.note(Clock::now() - started, outcome == Outcome::timedOut);
    if (outcome == Outcome::noBus) {
      connection_ = nullptr;
    }
  }

  /// GTK 4 tells in one answer most of what there is to know of all that anybody has seen of it.
  void readItems(const AXElement::Handle& application) {
    connection_->ask(Atspi::getItems(*connection_, application.object),
                     [this](AccessibilityBus::Reply<Atspi::Items> reply) {
                       learned_.items = std::move(reply.value);
                     });
    run(application);
  }

  void readAhead(const Node& node) {
    if (!hopeless()) {
      startSome();
      run(node.element.handle());
    }
  }

  /// Whether the walk comes to this place, as far as can be told: fewer elements that show lie
  /// before it than the walk visits in all.
  [[nodiscard]] bool isWithinReach(const Path& path) const {
    return visited_.size() < static_cast<std::size_t>(walk_->maxNodes) || path < *visited_.rbegin();
  }

  void startSome() {
    while (underWay_ < maxUnderWay && !frontier_.empty() &&
           isWithinReach(frontier_.begin()->first)) {
      Node& node = *frontier_.begin()->second;
      frontier_.erase(frontier_.begin());
      visited_.insert(node.path);
      if (visited_.size() > static_cast<std::size_t>(walk_->maxNodes)) {
        visited_.erase(std::prev(visited_.end()));
      }
      startReading(node);
    }
  }

  [[nodiscard]] bool looksBelow(const Node& node) const {
    return walk_ && node.path.size() < static_cast<std::size_t>(walk_->maxDepth);
  }

  void startReading(Node& node) {
    ++underWay_;
    SnapshotRequest request;
    request.atOnce = underWay_ <= fewUnderWay;
    request.maxChildren = looksBelow(node) ? walk_->maxChildren : 0;
    request.learned = walk_ ? &learned_ : nullptr;
    if (node.parent) {
      request.parentRole = node.parent->snapshot.kind.role;
    }
    readSnapshot(*connection_, node.element.handle(), request, [this, &node](SnapshotReply reply) {
      const Outcome outcome = reply.outcome;
      --underWay_;
      keep(node, std::move(reply));
      if (!isGivenUp(outcome)) {
        startSome();
      }
    });
  }

  void keep(Node& node, SnapshotReply reply) {
    if (reply.outcome == Outcome::timedOut && walk_) {
      // Its turn comes again if the application does.
      visited_.erase(node.path);
      frontier_.emplace(node.path, &node);
      return;
    }
    node.progress = reply ? Node::Progress::read : Node::Progress::failed;
    node.snapshot = std::move(reply.value);
    if (node.progress != Node::Progress::read) {
      return;
    }
    limitChildren(node.snapshot.children);
    if (node.parent && (!node.snapshot.shows() || isScrolledAway(node) || isUnopenedWindow(node))) {
      visited_.erase(node.path);
      hide(node);
    } else if (looksBelow(node)) {
      lookAtMore(node);
    }
  }

  /// Whether it lies wholly beside what its parent shows of its inside. Qt says of such elements
  /// that they show.
  static bool isScrolledAway(const Node& node) {
    const Snapshot& inner = node.snapshot;
    const Snapshot& outer = node.parent->snapshot;
    return inner.toolkit == Toolkit::qt && Roles::clips(outer.kind.role) && outer.extents &&
           inner.extents && !inner.extents->meets(*outer.extents);
  }

  /// Whether it is one of the windows that Chromium keeps ready, for its suggestions and the like,
  /// and says that they show. The X server knows better. What pops up is not managed, and is on
  /// top.
  static bool isUnopenedWindow(const Node& node) {
    const AXElement::Handle& handle = node.element.handle();
    const Snapshot& snapshot = node.snapshot;
    const bool isToplevel = handle.window == handle.object.path;
    auto x11 = handle.toolkit == Toolkit::chromium && isToplevel && snapshot.extents
                   ? X11::Session::open(after(X11::lookLimit))
                   : std::nullopt;
    if (!x11) {
      return false;
    }
    auto windows = X11::windowsOf(*x11, handle.pid);
    const Atspi::Extents& e = *snapshot.extents;
    const auto middle = [](std::int64_t begin, std::int64_t end) {
      return static_cast<int>(std::clamp<std::int64_t>((begin + end) / 2, INT16_MIN, INT16_MAX));
    };
    if (auto top = X11::windowAt(*x11, middle(e.x, e.right()), middle(e.y, e.bottom()));
        top && top->pid == handle.pid) {
      windows.push_back(std::move(*top));
    }
    return std::none_of(windows.begin(), windows.end(), [&snapshot](const X11::Window& window) {
      return distance(snapshot, Placement{}, window) <= windowMargin;
    });
  }

  /// Every element may list as many children as an answer holds.
  void limitChildren(std::vector<Child>& children) {
    if (children.size() > room_) {
      children.resize(room_);
      children.shrink_to_fit();
    }
    room_ -= children.size();
  }

  /// Forgets a child, of which there may be thousands that don't show, and goes on to others.
  void hide(const Node& child) {
    Node& parent = *child.parent;
    ++parent.hiddenChildren;
    if (!child.isListed) {
      parent.children[child.path.back()] = nullptr;
      nodes_.erase(&child.element.handle());
    }
    lookAtMore(parent);
  }

  /// Goes on to further children until there are as many that may show as the walk looks at.
  void lookAtMore(Node& node) {
    const auto& known = node.snapshot.children;
    while (node.children.size() < known.size() &&
           node.children.size() - node.hiddenChildren < walk_->maxChildren) {
      const std::size_t index = node.children.size();
      auto handle = std::make_shared<AXElement::Handle>(node.element.handle());
      handle->object = known[index].object;
      handle->row = known[index].row;
      if (handle->window.empty()) {
        handle->window = handle->object.path;
      }
      Path path = node.path;
      path.push_back(static_cast<std::uint32_t>(index));
      Node& child = add(AXElement(std::move(handle)), &node, std::move(path));
      node.children.push_back(&child);
      frontier_.emplace(child.path, &child);
    }
  }

  /// The placement of the open popover that an element is in, if it is in one.
  [[nodiscard]] std::optional<Placement> placementInPopover(const Node& node) const {
    const std::string& window = node.element.handle().window;
    for (const Node* at = &node; at && at->element.handle().object.path != window;
         at = at->parent) {
      for (const X11::Window& popup : popups_) {
        if (auto placement = popoverPlacement(at->snapshot, popup)) {
          return placement;
        }
      }
    }
    return std::nullopt;
  }

  /// What the window that an element is in says of itself. A walk has read it already.
  Snapshot toplevelOf(const Node& node) {
    AXElement::Handle toplevel = node.element.handle();
    toplevel.object.path = toplevel.window;
    toplevel.row.reset();
    for (const Node* at = &node; at; at = at->parent) {
      if (at->element.handle().object.path == toplevel.window) {
        return at->snapshot;
      }
    }
    return hopeless() ? Snapshot{} : readSnapshotNow(*connection_, toplevel).value;
  }

  std::optional<Placement> findPlacement(const Node& node) {
    const AXElement::Handle& handle = node.element.handle();
    const Snapshot read = toplevelOf(node);
    auto x11 = X11::Session::open(after(X11::lookLimit));
    const auto windows = x11 ? X11::windowsOf(*x11, handle.pid) : std::vector<X11::Window>{};
    if (x11 && handle.toolkit == Toolkit::gtk4) {
      popups_ = X11::popupsOf(*x11, handle.pid);
    }
    for (const X11::Window& popup : popups_) {
      if (auto placement = popoverPlacement(read, popup)) {
        return placement;
      }
    }
    return placementOf(read, windowShowing(read, windows));
  }

  StraightConnection straight_;
  Connection* connection_;
  std::optional<AXWalk> walk_;
  std::unordered_map<const AXElement::Handle*, std::unique_ptr<Node>> nodes_;
  std::map<Path, Node*> frontier_;  // known, and not asked about yet
  std::set<Path> visited_;          // the first of those that the walk will visit
  std::map<std::string, std::optional<Placement>> placements_;
  std::vector<X11::Window> popups_;  // of a GTK 4 application
  std::size_t underWay_ = 0;
  std::size_t room_ = maxObjects;
  Patience patience_;
  Learned learned_;
};

AXReader::AXReader() : state_(std::make_unique<State>()) {}
AXReader::AXReader(const AXElement& root, const AXWalk& walk)
    : state_(std::make_unique<State>(root, walk)) {}
AXReader::~AXReader() = default;

std::optional<AXValue> AXReader::attribute(const AXElement& element, AXAttribute attribute) {
  const Node* const node = state_->read(element);
  if (!node) {
    return std::nullopt;
  }
  const Snapshot& snapshot = node->snapshot;
  switch (attribute) {
    case AXAttribute::role:
      return textAttribute(Roles::namesOf(snapshot.kind).role);
    case AXAttribute::subrole:
      return textAttribute(Roles::namesOf(snapshot.kind).subrole);
    case AXAttribute::title:
      return snapshot.title();
    case AXAttribute::value:
      return snapshot.value();
    case AXAttribute::enabled:
      return snapshot.kind.role == Atspi::Role::application
                 ? std::nullopt
                 : std::optional<AXValue>(AXNumber(snapshot.isEnabled() ? 1 : 0));
    case AXAttribute::focused:
      return AXNumber(snapshot.has(Atspi::State::focused) ? 1 : 0);
    case AXAttribute::position:
    case AXAttribute::size:
      break;
    case AXAttribute::children:
      return State::children(*node);
  }
  const auto placement = snapshot.extents ? state_->placement(*node) : std::nullopt;
  if (!placement) {
    return std::nullopt;
  }
  return attribute == AXAttribute::position ? AXValue(placement->position(*snapshot.extents))
                                            : AXValue(placement->size(*snapshot.extents));
}

std::vector<std::string> AXReader::actionNames(const AXElement& element) {
  const Node* const node = state_->read(element);
  return node ? node->snapshot.actionNames() : std::vector<std::string>{};
}

}  // namespace tervain::Platform
