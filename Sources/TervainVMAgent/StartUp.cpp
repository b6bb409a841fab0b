#include "TervainVMAgent/StartUp.h"

#include <charconv>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "Platform/Privacy.h"
#include "Platform/Process.h"
#include "TervainVMAgent/AgentListener.h"
#include "TervainVMAgent/InheritedListener.h"
#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/AgentWire.h"
#include "VMAgentCore/IO.h"
#include "VMAgentCore/Log.h"
#include "VMAgentCore/System.h"

namespace tervain {
namespace {

const char* text(bool value) {
  return value ? "true" : "false";
}

void logReadiness() {
  const char* const accessibility = text(Platform::accessibilityGranted());
  const char* const screenRecording = text(Platform::screenRecordingGranted());
  const char* const postEvent = text(Platform::postEventGranted());
  agentLog("readiness: accessibility=", accessibility, " screenRecording=", screenRecording,
           " postEvent=", postEvent);
}

void openLog(std::string_view file) try {
  if (!file.empty()) {
    logToFile(file);
  }
} catch (const AgentError& error) {
  agentLog(error.what());
}

/// The process's one listener, on the handed-over socket or else on the port.
AgentListener& openListener(std::uint32_t port) {
  auto inherited = inheritedListener();
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

int runAgent(std::string_view logFile) {
  occupyStandardDescriptors();
  openLog(logFile);
  System::returnLargeMemory();
  Platform::prepareForThreads();
  std::signal(SIGPIPE, SIG_IGN);
  // A parent may have left it ignored, and then the ends of our commands would be lost.
  std::signal(SIGCHLD, SIG_DFL);
  const std::uint32_t port = choosePort(std::getenv("TERVAIN_AGENT_PORT"));
  agentLog("TervainVMAgent protocol v", Decimal(AgentWire::version), " starting on vsock port ",
           Decimal(port));
  try {
    logReadiness();
    AgentListener& listener = openListener(port);
    std::thread([&listener] { listener.run(); }).detach();
  } catch (const AgentError& error) {
    agentLog("FATAL: ", error.what(),
             " — is this running inside a macOS guest VM? (AF_VSOCK fails ENODEV on a host)");
    return EXIT_FAILURE;
  } catch (const std::exception& error) {  // no thread, or no memory
    agentLog("FATAL: ", error.what());
    return EXIT_FAILURE;
  }
  Platform::runMainLoop();
}

}  // namespace tervain
