// What the members of a request count as. The same number must be the same to every reader, a fatal
// error exactly where there is no integer for it; and what was read can be written again.
#include <cmath>
#include <iomanip>
#include <sstream>

#include "Fuzz/Fuzz.h"
#include "VMAgentCore/Json.h"
#include "VMAgentCore/Unicode.h"

using namespace tervain;

namespace {

bool isFatal(const Json& request, const std::string& key) {
  try {
    intField(request, key);
    return false;
  } catch (const fuzz::FatalError&) {
    return true;
  }
}

void readNumber(const Json& request, const std::string& key, double number) {
  const auto exact = integerMember(request, key);
  const bool fits = number >= -0x1p63 && number < 0x1p63;
  fuzz::require(isFatal(request, key) == (!fits && !exact), "fatal or not");
  if (!fits && !exact) {
    return;
  }
  const auto cut = intField(request, key);
  fuzz::require(cut.has_value() && (!exact || exact == cut), "two integers for a number");
  fuzz::require(
      std::abs(static_cast<double>(*cut) - std::trunc(number)) <= std::abs(number) * 1e-15,
      "an integer that is not the number without its fraction");
  fuzz::require(truthy(request, key) == (number != 0), "truthy or not");
}

void readString(const Json& request, const std::string& key, const std::string& value) {
  const std::string* text = stringMember(request, key);
  fuzz::require(text && *text == value, "another string");
  fuzz::require(!intField(request, key) && !truthy(request, key), "a string that is a number");
  std::ostringstream escaped;
  for (const unsigned unit : utf16(value)) {
    escaped << "\\u" << std::hex << std::setw(4) << std::setfill('0') << unit;
  }
  fuzz::require(Json::parse('"' + escaped.str() + '"', nullptr, false) == value,
                "another text in UTF-16");
}

void readMembers(const Json& request) {
  for (const auto& [key, value] : request.items()) {
    if (value.is_number()) {
      readNumber(request, key, value.get<double>());
    } else if (value.is_string()) {
      readString(request, key, value.get_ref<const std::string&>());
    } else if (value.is_boolean()) {
      fuzz::require(integerMember(request, key) == (value.get<bool>() ? 1 : 0),
                    "a boolean's number");
    } else {
      fuzz::require(!intField(request, key) && !stringMember(request, key), "a value of no use");
    }
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view line = fuzz::textOf(data, size);
  const auto request = parseObject(line);
  const std::string_view names[] = {"k", "a"};
  const auto members = parseMembers(line, names);
  fuzz::require(request.has_value() == members.has_value(), "a line that is valid and is not");
  if (!request) {
    // The library takes a NUL for the end, and any depth.
    const bool may = line.find('\0') != std::string_view::npos || size > maxJsonDepth;
    fuzz::require(may || !Json::parse(line, nullptr, false).is_object(), "a valid line refused");
    return 0;
  }
  // As texts, in which an integer is no double.
  fuzz::require(request->dump() == Json::parse(line).dump(), "another object than the library's");
  for (const auto& [key, value] : members->items()) {
    const Json& whole = request->at(key);
    fuzz::require(
        value.is_structured() ? value.type() == whole.type() && value.empty() : value == whole,
        "another member");
  }
  for (const std::string_view name : names) {
    fuzz::require(members->contains(name) == request->contains(name), "a member was not kept");
  }
  readMembers(*request);
  const auto text = serialize(*request);
  fuzz::require(text.has_value(), "what was read can't be written");
  fuzz::require(text->find('\n') == std::string::npos, "a line feed in a line");
  fuzz::require(parseObject(*text) == *request, "another object after writing and reading");
  return 0;
}
