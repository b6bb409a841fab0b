#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// The constants of the wire protocol that the agent and its clients share.
namespace tervain::AgentWire {

/// The vsock port on which the agent listens unless told otherwise.
inline constexpr std::uint32_t port = 2035;

/// The protocol version.
inline constexpr int version = 2;

/// The longest run of bytes without a line feed that the agent holds for a connection (4 MiB).
inline constexpr std::size_t maxPendingBytes = 4'194'304;

/// How many displays a ping reports at the most.
inline constexpr std::size_t maxDisplays = 8;

/// Names of the exec operation: its request, and the frames that follow it in both directions.
namespace Exec {
inline constexpr std::string_view op = "exec";
inline constexpr std::string_view commandKey = "command";
inline constexpr std::string_view tagKey = "t";
// The underscores keep clear of the C library's macros.
inline constexpr std::string_view stdout_ = "o";
inline constexpr std::string_view stderr_ = "e";
inline constexpr std::string_view exit = "x";
inline constexpr std::string_view spawnError = "err";
inline constexpr std::string_view stdin_ = "i";
inline constexpr std::string_view stdinEOF = "eof";
inline constexpr std::string_view signal = "sig";
inline constexpr std::string_view dataKey = "d";
inline constexpr std::string_view codeKey = "code";
inline constexpr std::string_view messageKey = "m";
inline constexpr std::string_view signalKey = "n";
}  // namespace Exec

/// Names of the shell-events operation: its request and its reply.
namespace ShellEvents {
inline constexpr std::string_view op = "shell-events";
inline constexpr std::string_view dirKey = "dir";
inline constexpr std::string_view maxBytesKey = "maxBytes";
inline constexpr std::string_view truncateKey = "truncate";
inline constexpr std::string_view eventsKey = "events";
inline constexpr std::string_view filesKey = "files";
inline constexpr std::string_view bytesKey = "bytes";
inline constexpr std::string_view truncatedKey = "truncated";
}  // namespace ShellEvents

/// The names of all members that an agent reads of what a host sends. Of others it takes no notice.
inline constexpr std::string_view hostMembers[] = {"op",
                                                   "x",
                                                   "y",
                                                   "button",
                                                   "count",
                                                   "toX",
                                                   "toY",
                                                   "fromX",
                                                   "fromY",
                                                   "dx",
                                                   "dy",
                                                   "text",
                                                   "chord",
                                                   "ref",
                                                   "action",
                                                   "value",
                                                   "pid",
                                                   "maxDepth",
                                                   "display",
                                                   "name",
                                                   Exec::commandKey,
                                                   Exec::tagKey,
                                                   Exec::dataKey,
                                                   Exec::signalKey,
                                                   ShellEvents::dirKey,
                                                   ShellEvents::maxBytesKey,
                                                   ShellEvents::truncateKey};

}  // namespace tervain::AgentWire
