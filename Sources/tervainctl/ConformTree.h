#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "VMAgentCore/Json.h"
#include "tervainctl/ConformGuest.h"

namespace tervain::ctl::conform {

/// What is wrong with a reply to "ax_dump" whose first ref must have this number, and which was
/// asked for so many levels below the root. Empty when nothing is.
std::string dumpFault(const Json& reply, std::int64_t firstRef, int maxDepth);

/// What is wrong with one node by itself, its children left out.
std::string nodeFault(const Json& node);

/// The number in a ref such as "e12"; 0 for anything else.
std::int64_t refNumber(const Json& node);

/// How many nodes a tree has, the root included.
std::int64_t countNodes(const Json& tree);

/// The first node, the root first, for which this is true; null if there is none.
Json findNode(const Json& tree, const std::function<bool(const Json& node)>& wanted);

/// Checks the trees of the application in front, for every kind of "maxDepth".
void checkFrontmostTree(const Guest& guest, Findings& findings);

/// Whether this is one of the texts that tell why an accessibility call has failed.
bool isReason(std::string_view text);

}  // namespace tervain::ctl::conform
