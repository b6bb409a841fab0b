#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tervain::ctl {

/// The pieces of a text between separators, of which there is always at least one.
std::vector<std::string_view> split(std::string_view text, char separator);

/// The text with every occurrence of something replaced.
std::string replaced(std::string_view text, std::string_view from, std::string_view to);

/// The text in lines of at most 80 characters, where its blanks allow that.
std::string filled(std::string text);

}  // namespace tervain::ctl
