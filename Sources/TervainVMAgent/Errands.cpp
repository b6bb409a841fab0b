#include "TervainVMAgent/Errands.h"

#include "VMAgentCore/System.h"

namespace tervain {

std::optional<Errands::Errand> Errands::begin(Deadline deadline) {
  std::unique_lock lock(mutex_);
  if (!System::waitUntil(ended_, lock, deadline, [this] { return running_ < maxRunning; })) {
    return std::nullopt;
  }
  ++running_;
  return std::optional<Errand>(std::in_place, *this);
}

void Errands::end() {
  const std::lock_guard lock(mutex_);
  --running_;
  ended_.notify_one();
}

}  // namespace tervain
