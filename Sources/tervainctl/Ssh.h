#pragma once

#include "tervainctl/CommandLine.h"

namespace tervain::ctl {

/// This program as ssh's friends call it: with ssh's options, a host that is an agent, and a
/// command. Returns the exit status, as ssh has it.
int runSsh(const Words& arguments);

}  // namespace tervain::ctl
