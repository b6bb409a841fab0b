#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Support/Peer.h"
#include "Support/TempDir.h"

namespace tervain::test {

/// What an agent needs of the environment to be on this test's desktop.
std::map<std::string, std::string> desktopEnvironment();

/// A program on the desktop. It is ended, and waited for, with this object.
class Application {
 public:
  explicit Application(const std::vector<std::string>& command);
  ~Application();
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;

  [[nodiscard]] pid_t pid() const { return pid_; }
  void signal(int number) const;

  /// Waits until it has ended by itself. Nothing when it does not; its exit status otherwise.
  std::optional<int> waitForEnd();

  /// What it has written to standard output.
  [[nodiscard]] std::string output() const;

 private:
  TempDir dir_;
  pid_t pid_ = -1;
  std::optional<int> status_;
};

/// All nodes of a tree, depth first. They belong to the tree.
std::vector<const Json*> nodesOf(const Json& tree);

/// The first node of a tree with this role and this text as its title or value. Null if there is
/// none; an empty text stands for any.
const Json* findNode(const Json& tree, const std::string& role, const std::string& text = "");

/// An application's tree as soon as it holds such a node. Null when that takes too long.
Json dumpWith(Peer& host, const Application& application, const std::string& role,
              const std::string& text = "");

/// Sends an operation about a node.
Json act(Peer& host, const std::string& op, const Json& node, Json more = Json::object());

/// What lies at the middle of a node.
Json hitMiddle(Peer& host, const Json& node);

}  // namespace tervain::test
