#include "tervainctl/Conformance/Grants.h"

#include <algorithm>
#include <string>
#include <vector>

#include "tervainctl/Conformance/Guest.h"
#include "tervainctl/Conformance/Patience.h"
#include "tervainctl/Conformance/Replies.h"

namespace tervain::ctl::conform {
namespace {

constexpr const GrantTerms& termsOf(Grant grant) {
  return grants[static_cast<std::size_t>(grant)];
}
static_assert(std::all_of(grants.begin(), grants.end(),
                          [](const GrantTerms& terms) { return &termsOf(terms.grant) == &terms; }));

}  // namespace

bool isGranted(const Guest& guest, Grant grant) {
  const auto readiness = guest.status().find("readiness");
  return readiness != guest.status().end() && readiness->is_object() &&
         truthy(*readiness, termsOf(grant).key);
}

bool needs(const Guest& guest, Findings& findings, Grant grant) {
  const bool granted = isGranted(guest, grant);
  if (!granted) {
    findings.skip(std::string(termsOf(grant).name) + " is not granted");
  }
  return granted;
}

void expectRefusals(const Guest& guest, Findings& findings, std::span<const Refusal> refusals) {
  AgentConnection host = guest.connect();
  for (const auto& [request, error] : refusals) {
    host.sendLine(request);
    const auto line = host.waitForLine(soon());
    const auto reply = line ? parseObject(*line) : std::nullopt;
    if (!findings.expectEqual(request, reply.value_or(Json()), failure(error))) {
      return;
    }
  }
}

void expectRefusals(const Guest& guest, Findings& findings, Grant grant,
                    std::span<const Refusal> refusals) {
  std::vector<Refusal> expected(refusals.begin(), refusals.end());
  if (!isGranted(guest, grant)) {
    const auto& terms = termsOf(grant);
    findings.note(std::string(terms.name) + " is not granted, and the replies say so");
    for (Refusal& refusal : expected) {
      refusal.error = terms.refusal;
    }
  }
  expectRefusals(guest, findings, expected);
}

}  // namespace tervain::ctl::conform
