#pragma once

#include <string_view>

namespace tervain {

/// Logs why and aborts the process. It is for what must never be answered: a broken promise of our
/// own code, or a request that the protocol declares fatal.
[[noreturn]] void fatalError(std::string_view why);

}  // namespace tervain
