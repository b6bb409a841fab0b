#pragma once

#include <optional>

#include "VMAgentCore/UniqueFD.h"

namespace tervain::Platform {

/// A listening stream socket that a service manager has handed to this process, if there is one. To
/// be called once, before any thread is started: it also removes what announced the socket from
/// the environment, so that no child of ours takes it for its own.
std::optional<UniqueFD> inheritedListener();

/// Parks the main thread in the loop that serves what the system wants done there.
[[noreturn]] void runMainLoop();

}  // namespace tervain::Platform
