#pragma once

#include <optional>

#include "VMAgentCore/UniqueFD.h"

namespace tervain {

/// A listening stream socket that a service manager has handed to this process, if there is one: it
/// is descriptor 3, `LISTEN_PID` is this process and `LISTEN_FDS` the number of descriptors. To be
/// called once, before any thread is started: it also removes what announced the socket from the
/// environment, so that no child of ours takes it for its own.
std::optional<UniqueFD> inheritedListener();

}  // namespace tervain
