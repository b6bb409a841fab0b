#include "VMAgentCore/Json.h"

#include <cmath>
#include <memory>

#include "VMAgentCore/FatalError.h"
#include "VMAgentCore/Rounding.h"

namespace {

/// Frees a part of a value. It is missing from a value that got its type and then no memory.
template <class T>
void release(T* held) {
  if (held) {
    std::destroy_at(held);
    std::allocator<T>().deallocate(held, 1);
  }
}

}  // namespace

template <>
void tervain::Json::json_value::destroy(value_t type) {
  switch (type) {
    case value_t::object:
      return release(object);
    case value_t::array:
      return release(array);
    case value_t::string:
      return release(string);
    case value_t::binary:
      return release(binary);
    default:
      return;  // nothing but itself
  }
}

namespace tervain {
namespace {

const Json* member(const Json& object, std::string_view key) {
  const auto found = object.find(key);
  return found == object.end() ? nullptr : &*found;
}

std::optional<std::int64_t> exactInteger(const Json& value) {
  if (value.is_boolean()) {
    return value.get<bool>() ? 1 : 0;
  }
  if (value.is_number_float()) {
    const auto number = value.get<double>();
    if (fitsInt64(number) && std::trunc(number) == number) {
      return static_cast<std::int64_t>(number);
    }
    return std::nullopt;
  }
  if (value.is_number_unsigned() &&
      value.get<std::uint64_t>() > static_cast<std::uint64_t>(INT64_MAX)) {
    return std::nullopt;
  }
  if (value.is_number_integer()) {
    return value.get<std::int64_t>();
  }
  return std::nullopt;
}

}  // namespace

const std::string* stringMember(const Json& object, std::string_view key) {
  const Json* value = member(object, key);
  return value ? value->get_ptr<const std::string*>() : nullptr;
}

std::optional<std::int64_t> integerMember(const Json& object, std::string_view key) {
  const Json* value = member(object, key);
  return value ? exactInteger(*value) : std::nullopt;
}

std::optional<std::int64_t> intField(const Json& object, std::string_view key) {
  const Json* value = member(object, key);
  if (!value) {
    return std::nullopt;
  }
  if (const auto exact = exactInteger(*value)) {
    return exact;
  }
  if (!value->is_number()) {
    return std::nullopt;
  }
  const auto number = value->get<double>();
  if (!fitsInt64(number)) {
    fatalError("the number in \"" + std::string(key) + "\" does not fit 64 bits");
  }
  return static_cast<std::int64_t>(number);
}

bool truthy(const Json& object, std::string_view key) {
  const Json* value = member(object, key);
  if (!value) {
    return false;
  }
  if (value->is_boolean()) {
    return value->get<bool>();
  }
  return value->is_number() && value->get<double>() != 0.0;
}

}  // namespace tervain
