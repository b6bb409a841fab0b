#pragma once

#include <string>

#include "VMAgentClient/ElementTree.h"

namespace tervain {

/// An element in a line without its line feed: its ref, role and subrole, title, ="value", position
/// and size, states, and actions in brackets. What it does not tell is left out. Nothing in it
/// breaks the line or reaches a terminal's controls.
std::string outlineOf(const Element& element);

/// An element and what lies below it, a line each, two spaces further in at each level.
std::string outline(const Element& root);

}  // namespace tervain
