#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Checkup.h"
#include "VMAgentCore/AgentWire.h"
#include "VMAgentCore/ExecSession.h"

namespace tervain {

/// What a checkup takes as given; tests give other values.
struct CheckupSettings {
  std::string shellPath{ExecSession::defaultDulkPath};
  std::uint32_t port = AgentWire::port;
  bool isReached = false;  ///< whether a host asks, through the agent: then it is served
  /// Opens a vsock port as `tervain_vsock_listen` does.
  std::function<int(std::uint32_t port)> listen;
  /// Whether it is an agent that answers on a port of this machine; nothing where the machine can't
  /// reach itself.
  std::function<std::optional<bool>(std::uint32_t port)> agentAnswers;
  /// How long one thing that may hang is waited for.
  std::chrono::milliseconds patience = std::chrono::seconds(10);
};

/// Looks, from inside the guest, at everything that the agent needs to serve its hosts, and gives
/// each finding as soon as it has it: the installation, the session, the grants, a picture that is
/// taken, a pointer that is moved and put back, the shell, the port.
void checkUp(const CheckupSettings& settings,
             const std::function<void(const Platform::Finding&)>& report);

/// Does that with the environment of the agent that runs, if one does, and prints a line for each
/// finding, with the line that mends what is wrong under it. Gives the exit status: 0 when nothing
/// is wrong.
int runCheckup(bool isReached = false);

}  // namespace tervain
