#include "tervainctl/Conformance/Replies.h"

#include <algorithm>

namespace tervain::ctl::conform {
namespace {

/// How much of a value is shown, in bytes: enough for any of the agent's own texts.
constexpr std::size_t shownBytes = 400;

}  // namespace

Json failure(std::string_view error) {
  return {{"ok", false}, {"error", error}};
}

bool hasMembers(const Json& object, std::initializer_list<const char*> names) {
  return object.is_object() && object.size() == names.size() &&
         std::all_of(names.begin(), names.end(),
                     [&](const char* name) { return object.contains(name); });
}

std::string shown(const Json& value) {
  if (value.is_null()) {
    return "nothing";
  }
  std::string text = serializeLossily(value);
  if (text.size() > shownBytes) {
    text.resize(shownBytes);
    text += "...";
  }
  return text;
}

}  // namespace tervain::ctl::conform
