#include "Platform/Linux/Elements.h"

#include <string_view>

namespace tervain {
namespace {

constexpr const char* accessible = "org.a11y.atspi.Accessible";
constexpr const char* applicationInterface = "org.a11y.atspi.Application";
constexpr std::string_view nullPath = "/org/a11y/atspi/null";

/// How long the names of objects can be. What is longer is nothing that an honest application says.
constexpr std::size_t maxName = 512;

/// How many objects of a list are kept: an answer has room for millions.
constexpr std::size_t maxObjects = 65'536;

/// How many lanes a connection straight to an application has. Each more takes it nearly a
/// millisecond to set up, and saves less than the one before.
constexpr std::size_t lanes = 3;

/// Reads one (so) structure. False at the end of the list.
bool readReference(sd_bus_message* message, AccessibilityBus::Object& object) {
  const char* bus = nullptr;
  const char* path = nullptr;
  if (sd_bus_message_read(message, "(so)", &bus, &path) <= 0) {
    return false;
  }
  object = {bus, path};
  if (object.bus.size() > maxName || object.path.size() > maxName) {
    object = {{}, std::string(nullPath)};
  }
  return true;
}

Toolkit toolkitNamed(std::string_view name) {
  // GTK 4 writes its name in capitals, GTK 3 does not.
  if (name == "GTK") {
    return Toolkit::gtk4;
  }
  if (name == "gtk") {
    return Toolkit::gtk3;
  }
  return name.starts_with("Qt") ? Toolkit::qt : Toolkit::other;
}

}  // namespace

namespace AccessibilityBus {

Objects readObjects(const Answer& answer) {
  Objects objects;
  if (!answer || sd_bus_message_enter_container(answer.message.get(), 'a', "(so)") <= 0) {
    return objects;
  }
  for (Object object; readReference(answer.message.get(), object);) {
    if (object.path != nullPath && objects.count++ < maxObjects) {
      objects.first.push_back(std::move(object));
    }
  }
  return objects;
}

std::optional<Object> readObject(const Answer& answer) {
  Object object;
  if (!answer || !readReference(answer.message.get(), object) || object.path == nullPath) {
    return std::nullopt;
  }
  return object;
}

namespace {

/// Asks which process is behind a connection. The bus answers this itself, so that no application
/// can hold it up.
void askForProcess(Connection& connection, const Object& object,
                   std::function<void(std::optional<std::uint32_t>)> done) {
  Message question = connection.method({"org.freedesktop.DBus", "/org/freedesktop/DBus"},
                                       "org.freedesktop.DBus", "GetConnectionUnixProcessID");
  sd_bus_message_append(question.get(), "s", object.bus.c_str());
  connection.ask(std::move(question), [done = std::move(done)](const Answer& answer) {
    done(answer.read<std::uint32_t>('u'));
  });
}

std::optional<Object> findApplication(Connection& connection, pid_t pid,
                                      std::chrono::milliseconds silence) {
  const Object registry{"org.a11y.atspi.Registry", "/org/a11y/atspi/accessible/root"};
  const auto applications = readObjects(
      connection.askNow(connection.method(registry, accessible, "GetChildren"), silence));
  std::optional<Object> found;
  for (const Object& candidate : applications.first) {
    askForProcess(connection, candidate,
                  [&found, &candidate, pid](std::optional<std::uint32_t> owner) {
                    if (!found && owner == static_cast<std::uint32_t>(pid)) {
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
  bool still = false;
  if (!latest.bus.empty()) {
    askForProcess(connection, latest, [&still, pid](std::optional<std::uint32_t> owner) {
      still = owner == static_cast<std::uint32_t>(pid);
    });
    connection.run(silence);
  }
  if (!still) {
    latest = findApplication(connection, pid, silence).value_or(Object{});
  }
  return latest.bus.empty() ? std::nullopt : std::optional(latest);
}

std::unique_ptr<Connection> straightTo(Connection& connection, const Object& application,
                                       std::chrono::milliseconds silence) {
  const auto answer = connection.askNow(
      connection.method(application, applicationInterface, "GetApplicationBusAddress"), silence);
  return answer ? Connection::toApplication(answer.text(), lanes, silence) : nullptr;
}

}  // namespace AccessibilityBus

Platform::AXElement Platform::applicationElement(pid_t pid,
                                                 std::chrono::milliseconds messagingTimeout) {
  auto handle = std::make_shared<AXElement::Handle>();
  handle->pid = pid;
  handle->timeout = messagingTimeout;
  auto* const connection = AccessibilityBus::Connection::ofThisThread();
  if (connection) {
    if (auto object = AccessibilityBus::applicationOf(*connection, pid, messagingTimeout)) {
      handle->object = std::move(*object);
      const auto name = connection->askNow(
          connection->property(handle->object, applicationInterface, "ToolkitName"),
          messagingTimeout);
      handle->wasSilent = name.outcome == AccessibilityBus::Outcome::timedOut;
      handle->toolkit = toolkitNamed(name.variantText());
    }
  }
  return AXElement(std::move(handle));
}

}  // namespace tervain
