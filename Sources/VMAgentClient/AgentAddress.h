#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "VMAgentCore/AgentWire.h"

namespace tervain {

/// An agent behind a Unix socket of its own, as a hypervisor or a test offers it.
struct UnixAddress {
  std::string path;
  bool operator==(const UnixAddress&) const = default;
};

/// An agent behind a Unix socket that leads to all vsock ports of a virtual machine: whoever
/// connects names the port first.
struct MuxAddress {
  std::string path;
  std::uint32_t port = AgentWire::port;
  bool operator==(const MuxAddress&) const = default;
};

/// An agent in the virtual machine with this context id, or with none in the machine that this runs
/// in itself.
struct VsockAddress {
  std::optional<std::uint32_t> cid;
  std::uint32_t port = AgentWire::port;
  bool operator==(const VsockAddress&) const = default;
};

/// An agent that a program leads to: its standard input and output are the connection.
struct ProgramAddress {
  std::string command;  // a command line for /bin/sh
  bool operator==(const ProgramAddress&) const = default;
};

/// Where an agent listens.
using AgentAddress = std::variant<UnixAddress, MuxAddress, VsockAddress, ProgramAddress>;

/// The address that "unix:PATH", "unix-mux:PATH[:PORT]", "vsock:CID[:PORT]" or "exec:COMMAND"
/// names, numbers in decimal and "local" as CID for this machine. A % may stand for the first
/// colon; behind it %XX is the byte of that hexadecimal value, so that an address can be written
/// without colons, slashes and blanks. Nothing when the text is anything else, or when a number is
/// the wildcard 4294967295.
std::optional<AgentAddress> parseAgentAddress(std::string_view text);

/// The text that names an address, complete with its port.
std::string toString(const AgentAddress& address);

}  // namespace tervain
