#pragma once

#include <string>

namespace tervain {

/// The path of the program that runs, without links in it. Empty when the system doesn't tell. The
/// port's folder implements it.
std::string ownPath();

}  // namespace tervain
