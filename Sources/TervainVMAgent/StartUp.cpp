#include "TervainVMAgent/StartUp.h"

#include <fcntl.h>
#include <unistd.h>

#include <charconv>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "Platform/Privacy.h"
#include "Platform/Process.h"
#include "TervainVMAgent/AgentListener.h"
#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/AgentWire.h"
#include "VMAgentCore/Log.h"
#include "VMAgentCore/System.h"

namespace tervain {
namespace {

/// A descriptor opened later must never land on 0, 1 or 2: what is meant for a log or a terminal
/// would go to a host.
void occupyStandardDescriptors() {
  int fd = 0;
  do {
    fd = open("/dev/null", O_RDWR);  // NOLINT(*-vararg): stays open on purpose where it fits
  } while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd >= 0) {
    close(fd);
  }
}

const char* text(bool value) {
  return value ? "true" : "false";
}

void logReadiness() {
  std::string line = "readiness: accessibility=";
  line += text(Platform::accessibilityGranted());
  line += " screenRecording=";
  line += text(Platform::screenRecordingGranted());
  line += " postEvent=";
  line += text(Platform::postEventGranted());
  agentLog(line);
}

/// The process's one listener, on the handed-over socket or else on the port.
AgentListener& openListener(std::uint32_t port) {
  auto inherited = Platform::inheritedListener();
  static AgentListener listener =
      inherited ? AgentListener(std::move(*inherited)) : AgentListener(port);
  return listener;
}

}  // namespace

std::uint32_t choosePort(const char* text) {
  std::string_view digits = text ? text : "";
  const bool negative = digits.starts_with('-');
  if (negative || digits.starts_with('+')) {
    digits.remove_prefix(1);
  }
  std::uint32_t port = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stop, failed] = std::from_chars(digits.data(), end, port);
  if (failed != std::errc() || stop != end || (negative && port != 0)) {
    return AgentWire::port;
  }
  return port;
}

int runAgent() {
  occupyStandardDescriptors();
  System::returnLargeMemory();
  std::signal(SIGPIPE, SIG_IGN);
  // A parent may have left it ignored, and then the ends of our commands would be lost.
  std::signal(SIGCHLD, SIG_DFL);
  const std::uint32_t port = choosePort(std::getenv("TERVAIN_AGENT_PORT"));
  agentLog("TervainVMAgent protocol v" + std::to_string(AgentWire::version) +
           " starting on vsock port " + std::to_string(port));
  logReadiness();
  try {
    AgentListener& listener = openListener(port);
    std::thread([&listener] { listener.run(); }).detach();
  } catch (const AgentError& error) {
    agentLog(std::string("FATAL: ") + error.what() +
             " — is this running inside a macOS guest VM? (AF_VSOCK fails ENODEV on a host)");
    return EXIT_FAILURE;
  }
  Platform::runMainLoop();
}

}  // namespace tervain
