#include "VMAgentClient/AgentAddress.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <charconv>
#include <limits>

#include "CVsock/cvsock.h"
#include "VMAgentCore/AgentError.h"

namespace tervain {
namespace {

constexpr std::string_view unixScheme = "unix:";
constexpr std::string_view vsockScheme = "vsock:";

/// Means "any" as a context id and as a port alike, so there is nothing to connect to.
constexpr std::uint32_t wildcard = std::numeric_limits<std::uint32_t>::max();

std::optional<std::uint32_t> parseNumber(std::string_view digits) {
  std::uint32_t number = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stop, failed] = std::from_chars(digits.data(), end, number);
  if (failed != std::errc() || stop != end || number == wildcard) {
    return std::nullopt;
  }
  return number;
}

std::optional<AgentAddress> parseVsock(std::string_view text) {
  const std::size_t colon = text.find(':');
  const auto cid = parseNumber(text.substr(0, colon));
  const auto port = colon == std::string_view::npos ? std::optional(AgentWire::port)
                                                    : parseNumber(text.substr(colon + 1));
  if (!cid || !port) {
    return std::nullopt;
  }
  return VsockAddress{*cid, *port};
}

/// Gives a descriptor or a negated errno value, like its counterpart for vsock.
int connectUnix(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    return -ENAMETOOLONG;
  }
  path.copy(&address.sun_path[0], path.size());
  UniqueFD fd(socket(AF_UNIX, SOCK_STREAM, 0));
  if (!fd) {
    return -errno;
  }
  fcntl(fd.get(), F_SETFD, FD_CLOEXEC);
  if (connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return -errno;
  }
  return fd.release();
}

}  // namespace

std::optional<AgentAddress> parseAgentAddress(std::string_view text) {
  if (text.starts_with(vsockScheme)) {
    return parseVsock(text.substr(vsockScheme.size()));
  }
  if (text.starts_with(unixScheme) && text.size() > unixScheme.size()) {
    return UnixAddress{std::string(text.substr(unixScheme.size()))};
  }
  return std::nullopt;
}

std::string toString(const AgentAddress& address) {
  if (const auto* local = std::get_if<UnixAddress>(&address)) {
    return std::string(unixScheme) + local->path;
  }
  const auto& vsock = std::get<VsockAddress>(address);
  return std::string(vsockScheme) + std::to_string(vsock.cid) + ":" + std::to_string(vsock.port);
}

UniqueFD connectTo(const AgentAddress& address) {
  const auto* local = std::get_if<UnixAddress>(&address);
  const auto* vsock = std::get_if<VsockAddress>(&address);
  const int fd = local ? connectUnix(local->path) : tervain_vsock_connect(vsock->cid, vsock->port);
  if (fd < 0) {
    throw AgentError::posix("connecting to " + toString(address), -fd);
  }
  return UniqueFD(fd);
}

}  // namespace tervain
