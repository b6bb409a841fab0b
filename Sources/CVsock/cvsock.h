#pragma once

#include <cstdint>

/// Opens a stream socket that listens for connections of any context id on a vsock port.
/// Returns the descriptor, which the caller owns, or a negated errno value.
int tervain_vsock_listen(std::uint32_t port, std::int32_t backlog);

/// Connects a stream socket to a vsock port of the machine with the given context id.
/// Returns the descriptor, which the caller owns, or a negated errno value.
int tervain_vsock_connect(std::uint32_t cid, std::uint32_t port);

/// Tells the context id under which this machine reaches itself. Returns 0 or a negated errno
/// value.
int tervain_vsock_local_cid(std::uint32_t* cid);
