#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "VMAgentClient/Elements.h"

namespace tervain::mcp {

/// A ref that can't be used. The text says what to do.
class BadRef : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A connection on which a tree was dumped, and where its refs are good for that reason.
struct Look {
  explicit Look(AgentConnection dumped) : connection(std::move(dumped)) {}
  AgentConnection connection;  // of whoever has its turn

 private:
  friend class Turn;
  std::mutex mutex_;
  std::condition_variable free_;
  bool taken_ = false;
};

/// One call at a time uses a connection.
class Turn {
 public:
  /// Waits for it until the deadline.
  Turn(Look& look, Deadline deadline);
  ~Turn();
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

  /// Whether it has come.
  explicit operator bool() const { return has_; }

 private:
  Look& look_;
  bool has_;
};

/// An element that a ref names, as it was seen.
struct Seen {
  std::shared_ptr<Look> look;
  Match match;  // with the agent's own ref
};

/// What the last snapshots have shown, and apart from them the last searches, so that these take no
/// refs away. Elements get refs of our own: numbers that are never used twice, whichever connection
/// the agent's are good on. Threads may share it.
class Snapshots {
 public:
  /// So many snapshots, and so many searches, are good.
  static constexpr std::size_t kept = 8;

  /// Keeps a tree, whose elements get their new refs. The connection is the one it was dumped on.
  void keep(AgentConnection connection, ElementTree& tree);

  /// The same for elements that were found.
  void keep(AgentConnection connection, std::vector<Match>& found);

  /// What a ref names. Throws BadRef.
  Seen find(const std::string& ref);

 private:
  struct Group {
    std::uint64_t first;  // its elements' refs are numbered from here
    std::shared_ptr<Look> look;
    std::vector<Match> elements;
  };
  void add(std::deque<Group>& groups, Group group);

  std::mutex mutex_;
  std::uint64_t next_ = 1;
  std::deque<Group> snapshots_;
  std::deque<Group> searches_;
};

}  // namespace tervain::mcp
