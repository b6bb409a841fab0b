#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

#include "VMAgentCore/Json.h"

namespace tervain::ctl::conform {

/// The reply of an operation that has nothing more to say.
inline const Json success{{"ok", true}};

/// A failure reply with this text.
Json failure(std::string_view error);

/// Whether an object has these members and no others.
bool hasMembers(const Json& object, std::initializer_list<const char*> names);

/// A value for the reader of the table: as JSON, and not too much of it.
std::string shown(const Json& value);

}  // namespace tervain::ctl::conform
