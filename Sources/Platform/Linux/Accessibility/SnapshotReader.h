#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "Platform/Linux/Accessibility/Snapshot.h"

/// Asks elements for what a snapshot holds.
namespace tervain::Linux {

/// What a walk has learned of an application and need not ask for again.
struct Learned {
  /// What actions are truly called that elements of a role offer by names in the user's language.
  std::map<std::pair<Atspi::Role, std::string>, std::string> actionNames;
  /// Where cells are, by their paths, as far as their rows have asked.
  std::map<std::string, Atspi::Extents> cells;
  /// What the application has told of all its elements at a time.
  Atspi::Items items;
};

/// How much of an element is asked for.
struct SnapshotRequest {
  std::size_t maxChildren = 0;  ///< how many children at the least, if there are so many
  /// The role of the parent where the caller knows it; otherwise it is asked where it matters.
  std::optional<Atspi::Role> parentRole;
  /// Whether to ask for more at a time than may be needed: sooner done, for one element.
  bool atOnce = true;
  /// Whether the states, the extents, the role and the number of children will do.
  bool placeOnly = false;
  /// The walk's, which is added to; null for one element.
  Learned* learned = nullptr;
};

/// Whether the element could be read, and what it had said by then even if not.
using SnapshotReply = AccessibilityBus::Reply<Snapshot>;

/// Queues the questions about an element; `done` is called once, as the connection runs. An element
/// that does not show is not asked for more than it takes to know that.
void readSnapshot(AccessibilityBus::Connection& connection,
                  const Platform::AXElement::Handle& element, const SnapshotRequest& request,
                  std::function<void(SnapshotReply)> done);

/// The same, waiting for the answers: as long as the element's application is not silent for its
/// timeout, and until the deadline at the most.
SnapshotReply readSnapshotNow(AccessibilityBus::Connection& connection,
                              const Platform::AXElement::Handle& element,
                              const SnapshotRequest& request = {},
                              Deadline deadline = Deadline::max());

}  // namespace tervain::Linux
