#pragma once

#include <array>
#include <span>
#include <string_view>

#include "tervainctl/Conformance/Check.h"

namespace tervain::ctl::conform {

/// The privacy grants that operations need.
enum class Grant { accessibility, inputSynthesis, screenRecording };

/// What a grant is called, and what is said without it.
struct GrantTerms {
  Grant grant;
  std::string_view name;     // in the table of checks
  std::string_view key;      // in the readiness that "ping" tells
  std::string_view refusal;  // the error of an operation that needs it
};

inline constexpr std::array<GrantTerms, 3> grants{{
    {Grant::accessibility, "accessibility", "accessibility",
     "Accessibility (kTCCServiceAccessibility) is not granted to the agent — re-run provisioning"},
    {Grant::inputSynthesis, "input synthesis", "postEvent",
     "input synthesis (kTCCServicePostEvent) is not granted to the agent — re-run provisioning"},
    {Grant::screenRecording, "screen recording", "screenRecording",
     "Screen Recording (kTCCServiceScreenCapture) is not granted to the agent — re-run "
     "provisioning"},
}};

/// Whether the guest's agent had the grant when the run began.
bool isGranted(const Guest& guest, Grant grant);

/// Notes why the check is skipped, if this grant is missing. Returns whether it is there.
bool needs(const Guest& guest, Findings& findings, Grant grant);

/// A request and the error text that it must get.
struct Refusal {
  const char* request;
  std::string_view error;
};

/// Sends the requests, each of which must be refused with its text.
void expectRefusals(const Guest& guest, Findings& findings, std::span<const Refusal> refusals);

/// The same for what needs a grant. Without it each must be refused with that grant's text.
void expectRefusals(const Guest& guest, Findings& findings, Grant grant,
                    std::span<const Refusal> refusals);

}  // namespace tervain::ctl::conform
