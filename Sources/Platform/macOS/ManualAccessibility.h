#pragma once

#include <sys/types.h>

namespace tervain::Platform {

/// Asks an application, once in its life, to make elements of what its windows show. Electron's do
/// so only when they are asked, and have them some hundred milliseconds later; others refuse, which
/// does no harm. Nothing is waited for.
void requestElements(pid_t pid);

}  // namespace tervain::Platform
