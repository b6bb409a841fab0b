#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tervain {

using Json = nlohmann::json;

}  // namespace tervain

/// Frees what a value holds. The library's own way takes memory for it, to be fit for values of any
/// depth, and there is no surviving a destructor that gets none. This one needs none; it takes the
/// stack of as many calls as the value is deep, and our values are bounded in that.
template <>
void tervain::Json::json_value::destroy(value_t type);

namespace tervain {

/// How deep arrays and objects may stand in each other in what the agent reads. It bounds memory
/// and stack whatever a peer sends; platform JSON readers draw the line at the same place.
inline constexpr int maxJsonDepth = 512;

// Both ways to read a text take time in proportion to its length, whatever is in it.

/// The object that a JSON text holds; nothing when the text is not JSON, not UTF-8, nested too
/// deep, made of more than a million values, or when its top level is anything but an object.
std::optional<Json> parseObject(std::string_view text);

/// The same for one of whose object only members of some names are of interest. All of the text is
/// checked, but no other members are kept, and of arrays and objects no more than that they are
/// such: it takes no more memory than their strings have bytes. There may be any number of values.
std::optional<Json> parseMembers(std::string_view text, std::span<const std::string_view> names);

/// The compact JSON text of a value, "/" written as "\/". Nothing when a string in it is not UTF-8.
/// A number that is none is null.
std::optional<std::string> serialize(const Json& value);

/// The compact JSON text of a value, "/" as it is, and U+FFFD for what is not UTF-8 in a string.
std::string serializeLossily(const Json& value);

/// The text with U+FFFD for what is not UTF-8.
std::string utf8Of(std::string_view bytes);

// How members of a request are read. This is the one place that decides what counts as what.

/// A member that is a string. Null when it is missing or anything else. The object owns it.
const std::string* stringMember(const Json& object, std::string_view key);

/// A member that is an integer exactly: 12 and 12.0 are, 12.5 and "12" are not; true and false
/// count as 1 and 0.
std::optional<std::int64_t> integerMember(const Json& object, std::string_view key);

/// A member that is a number, without its fraction (3.9 gives 3, -3.9 gives -3). A number outside
/// the signed 64-bit range is a fatal error.
std::optional<std::int64_t> intField(const Json& object, std::string_view key);

/// Whether a member says yes: true, or a number other than 0. Strings never do.
bool truthy(const Json& object, std::string_view key);

}  // namespace tervain
