#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "VMAgentCore/AgentWire.h"
#include "VMAgentCore/UniqueFD.h"

namespace tervain {

/// An agent behind a Unix socket, as a hypervisor or a test offers it.
struct UnixAddress {
  std::string path;
  bool operator==(const UnixAddress&) const = default;
};

/// An agent in the virtual machine with this context id.
struct VsockAddress {
  std::uint32_t cid = 0;
  std::uint32_t port = AgentWire::port;
  bool operator==(const VsockAddress&) const = default;
};

/// Where an agent listens.
using AgentAddress = std::variant<UnixAddress, VsockAddress>;

/// The address that "unix:PATH", "vsock:CID:PORT" or "vsock:CID" (the usual port) names, numbers in
/// decimal. Nothing when the text is anything else, or when a number is the wildcard 4294967295.
std::optional<AgentAddress> parseAgentAddress(std::string_view text);

/// The text that names an address, complete with its port.
std::string toString(const AgentAddress& address);

/// Connects a stream socket that no other program inherits. Throws AgentError.
UniqueFD connectTo(const AgentAddress& address);

}  // namespace tervain
