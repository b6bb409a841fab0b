#pragma once

namespace tervain::ctl {

/// Ends this process after so many seconds, wherever it hangs, with `timedOut` and words that say
/// so; what it has changed about the terminal is undone first. Infinity, or a later call, revokes
/// that.
void endAfter(double seconds);

}  // namespace tervain::ctl
