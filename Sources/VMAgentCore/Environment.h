#pragma once

#include <map>
#include <string>

namespace tervain {

using Environment = std::map<std::string, std::string, std::less<>>;

/// A copy of the process's environment.
Environment processEnvironment();

/// The user's home directory: `HOME` when it is set and not empty, else the password database's
/// entry. Having neither is a fatal error.
std::string homeDirectory();

}  // namespace tervain
