#include "TervainVMAgent/AXRegistry.h"

#include <limits>

#include "VMAgentCore/FatalError.h"

namespace tervain {

std::string AXRegistry::registerElement(Platform::AXElement element) {
  if (counter_ == std::numeric_limits<std::int64_t>::max()) {
    fatalError("a connection has run out of element refs");
  }
  std::string ref = "e" + std::to_string(++counter_);
  refs_.emplace(ref, std::move(element));
  return ref;
}

std::optional<Platform::AXElement> AXRegistry::operator[](const std::string& ref) const {
  const auto found = refs_.find(ref);
  return found == refs_.end() ? std::nullopt : std::optional(found->second);
}

}  // namespace tervain
