#include "tervainctl/Conformance/Guest.h"

#include "tervainctl/Conformance/GuestCommand.h"

namespace tervain::ctl::conform {

Guest::Guest(AgentAddress address, Applications applications)
    : address_(std::move(address)),
      applications_(std::move(applications)),
      status_(ask({{"op", "ping"}})) {
  GuestCommand uname(*this, "uname -s");
  const bool ended = uname.awaitEnd();
  const auto& came = uname.came();
  system_ = came.out.substr(0, came.out.find('\n'));
  if (system_.empty() || came.code != 0) {
    execRefusal_ = came.refusal.value_or(ended ? "uname -s does not work" : "uname -s hangs");
  }
  if (applications_.editor.empty()) {
    applications_.editor = isMac() ? "TextEdit" : "mousepad";
  }
  if (applications_.other.empty()) {
    applications_.other = isMac() ? "Calculator" : "featherpad";
  }
}

}  // namespace tervain::ctl::conform
