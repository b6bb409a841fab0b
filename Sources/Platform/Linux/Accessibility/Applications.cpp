#include "Platform/Linux/Accessibility/Applications.h"

#include <algorithm>
#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

#include "VMAgentCore/NeverDestroyed.h"

namespace tervain::Linux {

using AccessibilityBus::Connection;
using AccessibilityBus::Object;
using AccessibilityBus::Reply;

namespace {

/// How many lanes a connection straight to an application has. Each more saves less than the one
/// before.
constexpr std::size_t lanes = 6;

/// The connections straight to applications that nobody uses at the moment. GTK 3 never forgets one
/// that was made, and every turn of its main loop takes longer for each: so whoever asks next uses
/// the same.
class IdleConnections {
 public:
  static IdleConnections& shared() {
    static NeverDestroyed<IdleConnections> connections;
    return *connections;
  }

  /// Makes room for all that are ever kept: giving one back must not fail.
  IdleConnections() { idle_.reserve(maxIdle + 1); }

  /// Null when there is none to that application.
  std::unique_ptr<Connection> take(const BusAndProcess& application) {
    const std::lock_guard lock(mutex_);
    dropUseless();
    const auto found = std::find_if(idle_.begin(), idle_.end(), [&](const Idle& idle) {
      return idle.application == application;
    });
    if (found == idle_.end()) {
      return nullptr;
    }
    auto connection = std::move(found->connection);
    idle_.erase(found);
    return connection;
  }

  void giveBack(BusAndProcess application, std::unique_ptr<Connection> connection) {
    const std::lock_guard lock(mutex_);
    idle_.push_back({std::move(application), std::move(connection)});
    dropUseless();
    if (idle_.size() > maxIdle) {
      idle_.erase(idle_.begin());
    }
  }

  void tidyUp() {
    const std::lock_guard lock(mutex_);
    dropUseless();
  }

 private:
  /// As many applications as are driven in turn; each costs a descriptor a lane.
  static constexpr std::size_t maxIdle = 4;

  struct Idle {
    BusAndProcess application;
    std::unique_ptr<Connection> connection;
  };

  void dropUseless() {
    idle_.erase(std::remove_if(idle_.begin(), idle_.end(),
                               [](const Idle& idle) { return !idle.connection->isReusable(); }),
                idle_.end());
  }

  std::mutex mutex_;
  std::vector<Idle> idle_;  // the one longest unused first
};

Toolkit toolkitNamed(std::string_view name) {
  // GTK 4 writes its name in capitals, GTK 3 does not.
  if (name == "GTK") {
    return Toolkit::gtk4;
  }
  if (name == "gtk") {
    return Toolkit::gtk3;
  }
  if (name == "Gecko") {
    return Toolkit::gecko;
  }
  if (name == "Chromium") {
    return Toolkit::chromium;
  }
  return name.starts_with("Qt") ? Toolkit::qt : Toolkit::other;
}

std::optional<Object> findApplication(Connection& connection, pid_t pid,
                                      std::chrono::milliseconds silence) {
  const auto applications =
      connection.askNow(Atspi::getChildren(connection, Atspi::desktop()), silence).value;
  std::optional<Object> found;
  for (const Object& candidate : applications.first) {
    connection.ask(connection.getProcess(candidate),
                   [&found, &candidate, pid](const Reply<std::optional<pid_t>>& owner) {
                     if (!found && owner.value == pid) {
                       found = candidate;
                     }
                   });
  }
  connection.run(silence);
  return found;
}

}  // namespace

std::optional<Object> applicationOf(Connection& connection, pid_t pid,
                                    std::chrono::milliseconds silence) {
  // The latest one found is mostly asked for again. The bus never gives its name to another.
  thread_local Object latest;
  const bool still =
      !latest.bus.empty() && connection.askNow(connection.getProcess(latest), silence).value == pid;
  if (!still) {
    latest = findApplication(connection, pid, silence).value_or(Object{});
  }
  return latest.bus.empty() ? std::nullopt : std::optional(latest);
}

void dropEndedConnections() {
  IdleConnections::shared().tidyUp();
}

void GiveBack::operator()(Connection* connection) {
  IdleConnections::shared().giveBack(std::move(application),
                                     std::unique_ptr<Connection>(connection));
}

StraightConnection straightTo(Connection& connection,
                              const Platform::AXElement::Handle& application) {
  GiveBack giveBack{{application.object.bus, application.pid}};
  auto straight = IdleConnections::shared().take(giveBack.application);
  if (!straight) {
    const auto address = connection.askNow(
        Atspi::getApplicationBusAddress(connection, application.object), application.timeout);
    straight =
        address ? Connection::toApplication(address.value, lanes, application.timeout) : nullptr;
  }
  return {straight.release(), std::move(giveBack)};
}

}  // namespace tervain::Linux

namespace tervain::Platform {

using namespace Linux;

AXElement applicationElement(pid_t pid, std::chrono::milliseconds messagingTimeout) {
  auto handle = std::make_shared<AXElement::Handle>();
  handle->pid = pid;
  handle->timeout = messagingTimeout;
  auto* const connection = AccessibilityBus::Connection::ofThisThread();
  if (connection) {
    if (auto object = applicationOf(*connection, pid, messagingTimeout)) {
      handle->object = std::move(*object);
      const auto name =
          connection->askNow(Atspi::getToolkitName(*connection, handle->object), messagingTimeout);
      handle->wasSilent = name.outcome == AccessibilityBus::Outcome::timedOut;
      handle->toolkit = toolkitNamed(name.value);
    }
  }
  return AXElement(std::move(handle));
}

}  // namespace tervain::Platform
