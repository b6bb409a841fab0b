#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "VMAgentCore/Json.h"

namespace tervain::ctl::conform {

/// What is wrong with a reply to "ax_dump" that was asked for `maxDepth` levels below the root, and
/// whose root must have the ref of the number `firstRef`. Empty when nothing is.
std::string dumpFault(const Json& reply, std::int64_t firstRef, int maxDepth);

/// What is wrong with one node by itself, its children left out.
std::string nodeFault(const Json& node);

/// The number in a ref such as "e12"; 0 for anything else.
std::int64_t refNumber(const Json& node);

/// How many nodes a tree has, the root included.
std::int64_t countNodes(const Json& tree);

/// The first node, the root first, for which this is true; null if there is none.
Json findNode(const Json& tree, const std::function<bool(const Json& node)>& wanted);

/// Whether this is one of the texts that tell why an accessibility call has failed.
bool isReason(std::string_view text);

}  // namespace tervain::ctl::conform
