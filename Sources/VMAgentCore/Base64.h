#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tervain {

/// Appends `bytes` to `json` in standard base64 (padded, no line breaks), ready to stand inside a
/// JSON string: "/" goes out as "\/" as it does everywhere in the agent's JSON.
void appendBase64(std::string& json, std::string_view bytes);

/// The bytes behind a standard base64 text, or nothing unless all of it is valid: padded to a
/// multiple of four characters, no other characters, no stray bits in the last one.
std::optional<std::string> decodeBase64(std::string_view text);

}  // namespace tervain
