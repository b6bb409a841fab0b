#include "VMAgentClient/AgentAddress.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace tervain {
namespace {

constexpr std::string_view unixScheme = "unix";
constexpr std::string_view muxScheme = "unix-mux";
constexpr std::string_view vsockScheme = "vsock";
constexpr std::string_view programScheme = "exec";

/// Means "any" as a context id and as a port alike, so there is nothing to connect to.
constexpr std::uint32_t wildcard = std::numeric_limits<std::uint32_t>::max();

/// In place of a context id, the machine that this runs in.
constexpr std::string_view thisMachine = "local";

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
  const std::string_view machine = text.substr(0, colon);
  const auto cid = parseNumber(machine);
  const auto port = colon == std::string_view::npos ? std::optional(AgentWire::port)
                                                    : parseNumber(text.substr(colon + 1));
  if ((!cid && machine != thisMachine) || !port) {
    return std::nullopt;
  }
  return VsockAddress{cid, *port};
}

/// What follows the last colon is a port if it can be one, and part of the path otherwise.
std::optional<AgentAddress> parseMux(std::string_view text) {
  const std::size_t colon = text.rfind(':');
  const auto port =
      colon == std::string_view::npos ? std::nullopt : parseNumber(text.substr(colon + 1));
  const std::string_view path = port ? text.substr(0, colon) : text;
  if (path.empty()) {
    return std::nullopt;
  }
  return MuxAddress{std::string(path), port.value_or(AgentWire::port)};
}

/// The text with each %XX replaced by its byte. Nothing when a % begins anything else, or when
/// there is a zero byte.
std::optional<std::string> decoded(std::string_view text) {
  constexpr std::size_t escape = 3;
  constexpr int hexadecimal = 16;
  std::string bytes;
  while (!text.empty()) {
    if (text.front() != '%') {
      bytes += text.front();
      text.remove_prefix(1);
      continue;
    }
    unsigned char byte = 0;
    const char* const end = text.data() + std::min(escape, text.size());
    const auto [stop, failed] = std::from_chars(text.data() + 1, end, byte, hexadecimal);
    if (failed != std::errc() || stop != text.data() + escape || byte == 0) {
      return std::nullopt;
    }
    bytes += static_cast<char>(byte);
    text.remove_prefix(escape);
  }
  return bytes;
}

std::string withPort(std::string_view scheme, const std::string& place, std::uint32_t port) {
  return std::string(scheme) + ":" + place + ":" + std::to_string(port);
}

}  // namespace

std::optional<AgentAddress> parseAgentAddress(std::string_view text) {
  const std::size_t end = text.find_first_of(":%");
  if (end == std::string_view::npos) {
    return std::nullopt;
  }
  const std::string_view scheme = text.substr(0, end);
  const std::string_view rest = text.substr(end + 1);
  const auto place = text[end] == '%' ? decoded(rest) : std::string(rest);
  if (!place || place->empty()) {
    return std::nullopt;
  }
  if (scheme == vsockScheme) {
    return parseVsock(*place);
  }
  if (scheme == unixScheme) {
    return UnixAddress{*place};
  }
  if (scheme == muxScheme) {
    return parseMux(*place);
  }
  return scheme == programScheme ? std::optional<AgentAddress>(ProgramAddress{*place})
                                 : std::nullopt;
}

std::string toString(const AgentAddress& address) {
  if (const auto* local = std::get_if<UnixAddress>(&address)) {
    return std::string(unixScheme) + ":" + local->path;
  }
  if (const auto* mux = std::get_if<MuxAddress>(&address)) {
    return withPort(muxScheme, mux->path, mux->port);
  }
  if (const auto* vsock = std::get_if<VsockAddress>(&address)) {
    return withPort(vsockScheme,
                    vsock->cid ? std::to_string(*vsock->cid) : std::string(thisMachine),
                    vsock->port);
  }
  return std::string(programScheme) + ":" + std::get<ProgramAddress>(address).command;
}

}  // namespace tervain
