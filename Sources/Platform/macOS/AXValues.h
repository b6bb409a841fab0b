#pragma once

#include <ApplicationServices/ApplicationServices.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Accessibility.h"

/// The system's values as those of the seam.
namespace tervain::Platform {

/// The value of any object. `wanted` elements of a list become handles, with this timeout.
AXValue valueOf(CFTypeRef object, std::size_t wanted, std::chrono::milliseconds timeout);

/// An entry of an answer about many attributes. Nothing when it tells that there is no value, or
/// why it can't be had.
std::optional<AXValue> valueOfEntry(CFTypeRef entry, std::chrono::milliseconds timeout);

/// The strings of an array. Empty when one of its items is something else.
std::vector<std::string> stringsOf(CFArrayRef array);

}  // namespace tervain::Platform
