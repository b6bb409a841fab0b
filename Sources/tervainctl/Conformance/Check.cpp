#include "tervainctl/Conformance/Check.h"

#include "tervainctl/Conformance/Guest.h"
#include "tervainctl/Conformance/Replies.h"

namespace tervain::ctl::conform {

bool Findings::expect(bool holds, std::string_view divergence) {
  if (!holds && verdict_ != Verdict::diverged) {
    verdict_ = Verdict::diverged;
    reason_ = divergence;
  }
  return holds;
}

bool Findings::expectEqual(std::string_view what, const Json& got, const Json& wanted) {
  return expect(got == wanted,
                std::string(what) + ": expected " + shown(wanted) + ", got " + shown(got));
}

void Findings::skip(std::string_view why) {
  if (verdict_ == Verdict::held) {
    verdict_ = Verdict::skipped;
    reason_ = why;
  }
}

Check whereCommandsRun(Check check) {
  check.run = [run = std::move(check.run)](const Guest& guest, Findings& findings) {
    if (guest.execRefusal().empty()) {
      run(guest, findings);
    } else {
      findings.skip("the guest runs no commands");
    }
  };
  return check;
}

}  // namespace tervain::ctl::conform
