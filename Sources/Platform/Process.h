#pragma once

namespace tervain::Platform {

/// Tells the system's frameworks that this process is going to have threads. To be called before
/// any is started.
void prepareForThreads();

/// Parks the main thread in the loop that serves what the system wants done there.
[[noreturn]] void runMainLoop();

}  // namespace tervain::Platform
