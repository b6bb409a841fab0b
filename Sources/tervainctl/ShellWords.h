#pragma once

#include <optional>
#include <string_view>

#include "tervainctl/CommandLine.h"

namespace tervain::ctl {

/// Splits a line into words as a shell does that has no variables: at blanks, except behind a
/// backslash or within quotes. A backslash means itself within single quotes, and within double
/// quotes unless a double quote or a backslash follows. A word that begins with # begins a comment.
/// Nothing when the line ends within quotes or right behind a backslash.
std::optional<Words> splitShellWords(std::string_view line);

}  // namespace tervain::ctl
