#pragma once

#include <string>

#include "VMAgentClient/ElementTree.h"
#include "VMAgentClient/Screenshot.h"

namespace tervain {

/// A page for a browser that shows a picture with a box for every element of a tree, and the
/// outline beside it. It is complete in itself, and asks nobody for anything. `tervainctl` is how
/// commands for the shell begin, with the options that lead to this agent and application.
std::string inspectionPage(const ElementTree& tree, const Screenshot& picture,
                           const std::string& tervainctl);

/// A word as a shell takes it for itself, quoted where it must be.
std::string shellWord(std::string_view word);

}  // namespace tervain
