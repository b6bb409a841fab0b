// Launching, as far as nothing is started by it.

#include "tervainctl/Conformance/Grants.h"
#include "tervainctl/Conformance/Guest.h"
#include "tervainctl/Conformance/Replies.h"

namespace tervain::ctl::conform {
namespace {

void refusesWhatIsNoName(const Guest& guest, Findings& findings) {
  constexpr std::string_view error = "launch_app requires a non-empty \"name\"";
  const Refusal refusals[]{{R"({"op":"launch_app"})", error},
                           {R"({"op":"launch_app","name":""})", error},
                           {R"({"op":"launch_app","name":5})", error}};
  expectRefusals(guest, findings, refusals);
}

void knowsNoSuchApplication(const Guest& guest, Findings& findings) {
  for (const std::string name : {"No Such Application", "No Such Application.app"}) {
    const Json reply = guest.ask({{"op", "launch_app"}, {"name", name}});
    findings.expectEqual(name, reply,
                         failure("no application named \"" + name + "\" (open -a exited 1)"));
  }
}

}  // namespace

std::vector<Check> launchChecks() {
  return {
      {"launch", "a launch without a name is refused", refusesWhatIsNoName},
      {"launch", "an application that does not exist is named", knowsNoSuchApplication},
  };
}

}  // namespace tervain::ctl::conform
