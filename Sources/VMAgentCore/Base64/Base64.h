#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tervain {

/// Appends `bytes` to `json` in standard base64 (padded, no line breaks), ready to stand inside a
/// JSON string: "/" goes out as "\/" as it does everywhere in the agent's JSON.
void appendBase64(std::string& json, std::string_view bytes);

/// The bytes behind a standard base64 text, or nothing unless all of it is valid: padded to a
/// multiple of four characters, and no other characters. Bits of the last digit that no byte has a
/// use for may be anything.
std::optional<std::string> decodeBase64(std::string_view text);

/// The same for text as it stands inside a JSON string, where "/" may be written as "\/". No other
/// escape is valid.
std::optional<std::string> decodeEscapedBase64(std::string_view json);

}  // namespace tervain
