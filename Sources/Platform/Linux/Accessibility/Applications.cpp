#include "Platform/Linux/Accessibility/Applications.h"

#include <string_view>

namespace tervain::Linux {

using AccessibilityBus::Connection;
using AccessibilityBus::Object;
using AccessibilityBus::Reply;

namespace {

/// How many lanes a connection straight to an application has. Each more takes it nearly a
/// millisecond to set up, and saves less than the one before.
constexpr std::size_t lanes = 3;

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

std::unique_ptr<Connection> straightTo(Connection& connection, const Object& application,
                                       std::chrono::milliseconds silence) {
  const auto address =
      connection.askNow(Atspi::getApplicationBusAddress(connection, application), silence);
  return address ? Connection::toApplication(address.value, lanes, silence) : nullptr;
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
