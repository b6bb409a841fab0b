#include <algorithm>
#include <map>
#include <set>
#include <unordered_map>

#include "Platform/Linux/Facts.h"
#include "Platform/Linux/Placement.h"

namespace tervain::Platform {

using AccessibilityBus::Clock;
using AccessibilityBus::Connection;
using AccessibilityBus::Outcome;
using AXNames::State;

namespace {

/// How often an application may time out before a reader gives it up: one that merely stumbled gets
/// a second chance, one that hangs costs no more than that.
constexpr int maxTimeouts = 2;

/// How long a reader waits for an application in all. An application that answers every question
/// just in time would otherwise hold up a dump for minutes.
constexpr std::chrono::seconds maxReading{10};

/// How many elements are asked about at once. More would only wait in the application's queue.
constexpr std::size_t maxUnderWay = 48;

/// How many objects the lists of children may hold in all.
constexpr std::size_t maxObjects = 131'072;

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
  Facts facts;
  std::vector<Node*> children;  ///< those that were asked about; null if they don't show
  std::size_t hiddenChildren = 0;
  bool isListed = false;  ///< whether the walk has it from its parent
};

std::optional<AXValue> valueOf(const Facts& facts) {
  const auto role = facts.kind.role;
  if (facts.number) {
    return AXNumber(*facts.number);
  }
  if (facts.text && !facts.text->empty()) {
    return *facts.text;
  }
  if (AXNames::isCheckable(facts.kind)) {
    const State on = role == AXNames::pageTab ? State::selected : State::checked;
    const std::int64_t unclear = facts.has(State::indeterminate) ? 2 : 0;
    return AXNumber(facts.has(on) ? 1 : unclear);
  }
  if (AXNames::showsItsName(role)) {
    return AXNames::title(facts.name, facts.toolkit);
  }
  return std::nullopt;
}

std::optional<AXValue> titleOf(const Facts& facts) {
  std::string title = AXNames::title(facts.name, facts.toolkit);
  const auto value = AXNames::showsItsName(facts.kind.role) ? valueOf(facts) : std::nullopt;
  const auto* shown = value ? std::get_if<std::string>(&*value) : nullptr;
  if (shown && *shown == title) {
    return std::nullopt;
  }
  return title;
}

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
        timeouts_(root.handle().wasSilent ? 1 : 0) {
    if (root.handle().object.bus.empty()) {
      connection_ = nullptr;
      return;
    }
    const AXElement::Handle& handle = root.handle();
    if (connection_ && handle.toolkit == Toolkit::gtk3) {
      straight_ = AccessibilityBus::straightTo(*connection_, handle.object, handle.timeout);
      connection_ = straight_ ? straight_.get() : connection_;
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
    AXElements list{{}, node.facts.childCount - node.hiddenChildren};
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
    if (handle.window.empty() || handle.toolkit == Toolkit::other) {
      return Placement{};
    }
    const auto known = placements_.find(handle.window);
    if (known != placements_.end()) {
      return known->second;
    }
    return placements_.emplace(handle.window, findPlacement(handle)).first->second;
  }

 private:
  /// Whether it would be in vain to ask any more.
  [[nodiscard]] bool hopeless() const {
    return !connection_ || timeouts_ >= maxTimeouts || spent_ >= maxReading;
  }

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
    const Outcome outcome = connection_->run(handle.timeout, started + (maxReading - spent_));
    spent_ += Clock::now() - started;
    timeouts_ += outcome == Outcome::timedOut ? 1 : 0;
    if (outcome == Outcome::noBus) {
      connection_ = nullptr;
    }
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
    FactsWanted wanted;
    wanted.atOnce = underWay_ <= fewUnderWay;
    wanted.maxChildren = looksBelow(node) ? walk_->maxChildren : 0;
    if (node.parent) {
      wanted.parentRole = node.parent->facts.kind.role;
    }
    readFacts(*connection_, node.element.handle(), wanted,
              [this, &node](Outcome outcome, Facts facts) {
                --underWay_;
                keep(node, outcome, std::move(facts));
                if (outcome != Outcome::timedOut && outcome != Outcome::noBus) {
                  startSome();
                }
              });
  }

  void keep(Node& node, Outcome outcome, Facts facts) {
    if (outcome == Outcome::timedOut && walk_) {
      // Its turn comes again if the application does.
      visited_.erase(node.path);
      frontier_.emplace(node.path, &node);
      return;
    }
    node.progress = outcome == Outcome::answered ? Node::Progress::read : Node::Progress::failed;
    node.facts = std::move(facts);
    if (node.progress != Node::Progress::read) {
      return;
    }
    limitChildren(node.facts);
    if (node.parent && (!node.facts.shows() || isScrolledAway(node))) {
      visited_.erase(node.path);
      hide(node);
    } else if (looksBelow(node)) {
      lookAtMore(node);
    }
  }

  /// Whether it lies wholly beside what its parent shows of its inside. Qt says of such elements
  /// that they show.
  static bool isScrolledAway(const Node& node) {
    const Facts& outer = node.parent->facts;
    return node.facts.toolkit == Toolkit::qt && AXNames::clips(outer.kind.role) && outer.extents &&
           node.facts.extents && !node.facts.extents->meets(*outer.extents);
  }

  /// Every element may list as many children as an answer holds.
  void limitChildren(Facts& facts) {
    if (facts.children.size() > room_) {
      facts.children.resize(room_);
      facts.children.shrink_to_fit();
    }
    room_ -= facts.children.size();
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
    const auto& objects = node.facts.children;
    while (node.children.size() < objects.size() &&
           node.children.size() - node.hiddenChildren < walk_->maxChildren) {
      const std::size_t index = node.children.size();
      auto handle = std::make_shared<AXElement::Handle>(node.element.handle());
      handle->object = objects[index];
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

  std::optional<Placement> findPlacement(const AXElement::Handle& handle) {
    auto toplevel = handle;
    toplevel.object.path = handle.window;
    const FactsNow read = hopeless() ? FactsNow{} : readFactsNow(*connection_, toplevel);
    auto x11 = X11::Session::open(X11::Clock::now() + X11::lookLimit);
    const auto windows = x11 ? X11::windowsOf(*x11, handle.pid) : std::vector<X11::Window>{};
    return placementOf(read.facts, windowShowing(read.facts, windows));
  }

  std::unique_ptr<Connection> straight_;
  Connection* connection_;
  std::optional<AXWalk> walk_;
  std::unordered_map<const AXElement::Handle*, std::unique_ptr<Node>> nodes_;
  std::map<Path, Node*> frontier_;  // known, and not asked about yet
  std::set<Path> visited_;          // the first of those that the walk will visit
  std::map<std::string, std::optional<Placement>> placements_;
  std::size_t underWay_ = 0;
  std::size_t room_ = maxObjects;
  int timeouts_ = 0;
  Clock::duration spent_{};
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
  const Facts& facts = node->facts;
  switch (attribute) {
    case AXAttribute::role:
      return textAttribute(AXNames::namesOf(facts.kind).role);
    case AXAttribute::subrole:
      return textAttribute(AXNames::namesOf(facts.kind).subrole);
    case AXAttribute::title:
      return titleOf(facts);
    case AXAttribute::value:
      return valueOf(facts);
    case AXAttribute::enabled:
      return facts.kind.role == AXNames::application
                 ? std::nullopt
                 : std::optional<AXValue>(AXNumber(facts.isEnabled() ? 1 : 0));
    case AXAttribute::focused:
      return AXNumber(facts.has(AXNames::State::focused) ? 1 : 0);
    case AXAttribute::position:
    case AXAttribute::size:
      break;
    case AXAttribute::children:
      return State::children(*node);
  }
  const auto placement = facts.extents ? state_->placement(*node) : std::nullopt;
  if (!placement) {
    return std::nullopt;
  }
  return attribute == AXAttribute::position ? AXValue(placement->position(*facts.extents))
                                            : AXValue(placement->size(*facts.extents));
}

std::vector<std::string> AXReader::actionNames(const AXElement& element) {
  const Node* const node = state_->read(element);
  return node ? actionNamesOf(node->facts) : std::vector<std::string>{};
}

}  // namespace tervain::Platform
