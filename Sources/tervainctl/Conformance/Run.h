#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tervainctl/Conformance/Check.h"
#include "tervainctl/Conformance/Guest.h"

namespace tervain::ctl::conform {

/// All checks in the order of the table. Those of the desktop are wanted or not.
std::vector<Check> allChecks(bool desktop);

/// What the run and its user tell each other meanwhile.
struct Report {
  std::function<void(std::string_view text)> print;
  std::function<bool()> goesOn;  // asked before each check; the rest is left out when it says no
};

/// Prints what the guest is, a row for each check as soon as it is done, and how many held. Whether
/// all were done and none diverged.
bool run(const Guest& guest, std::span<const Check> checks, const Report& report);

}  // namespace tervain::ctl::conform
