#include "tervainctl/CommandTable/Arguments.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <sstream>
#include <vector>

#include "tervainctl/CommandTable/Text.h"

namespace tervain::ctl {
namespace {

[[noreturn]] void refuse(const Option& option, const std::string& value, const std::string& want) {
  throw BadArgument(std::string(nameOf(option)) + ": " + value + " is not " + want);
}

Json integer(const Option& option, const std::string& word) {
  std::int64_t number = 0;
  const char* const end = word.data() + word.size();
  const auto [rest, error] = std::from_chars(word.data(), end, number);
  if (error != std::errc() || rest != end) {
    refuse(option, "\"" + word + "\"", "a whole number");
  }
  return number;
}

Json number(const Option& option, const std::string& word) {
  Json value = Json::parse(word, nullptr, false);
  if (!value.is_number()) {
    refuse(option, "\"" + word + "\"", "a number");
  }
  return value;
}

Json integers(const Option& option, std::span<const std::string> line) {
  std::vector<std::string> words(line.begin(), line.end());
  if (option.separator != 0) {
    const auto pieces = split(line.front(), option.separator);
    words.assign(pieces.begin(), pieces.end());
    if (words.size() != option.parts.size()) {
      refuse(option, "\"" + line.front() + "\"", std::string(option.placeholder));
    }
  }
  Json object = Json::object();
  for (std::size_t i = 0; i < option.parts.size(); ++i) {
    object[std::string(option.parts[i].name)] = integer(option, words[i]);
  }
  return object;
}

Json single(const Option& option, std::span<const std::string> words) {
  switch (option.kind) {
    case Kind::flag:
      return true;
    case Kind::integer:
      return integer(option, words.front());
    case Kind::number:
      return number(option, words.front());
    case Kind::integers:
      return integers(option, words);
    case Kind::words:
      return Json(std::vector<std::string>(words.begin(), words.end()));
    default:
      return words.front();
  }
}

std::string rangeText(const Range& range) {
  std::ostringstream text;
  text.precision(std::numeric_limits<double>::max_digits10);
  if (std::isinf(range.most)) {
    text << range.least << " or more";
  } else {
    text << "from " << range.least << " to " << range.most;
  }
  return text.str();
}

std::string choiceText(std::span<const std::string_view> choices) {
  std::string text = "one of";
  for (const std::string_view choice : choices) {
    text.append(" ").append(choice);
  }
  return text;
}

/// Whether a number is an integer that 64 bits hold, as the protocol wants them.
bool isInteger(const Json& value) {
  constexpr double most = 9'007'199'254'740'992;  // beyond it, numbers with fractions have gaps
  if (value.is_number_float()) {
    const auto number = value.get<double>();
    return std::trunc(number) == number && std::abs(number) <= most;
  }
  return value.is_number_integer() &&
         !(value.is_number_unsigned() &&
           value.get<std::uint64_t>() > std::uint64_t{std::numeric_limits<std::int64_t>::max()});
}

void checkParts(const Option& option, const Json& value) {
  const auto isThere = [&value](const Part& part) {
    const auto member = value.find(part.name);
    return member != value.end() && isInteger(*member);
  };
  if (!value.is_object() || value.size() != option.parts.size() ||
      !std::all_of(option.parts.begin(), option.parts.end(), isThere)) {
    std::string names;
    for (const Part& part : option.parts) {
      names.append(names.empty() ? "" : ", ").append(part.name);
    }
    refuse(option, value.dump(), "an object of whole numbers: " + names);
  }
}

/// Checks that a value is of its option's kind.
void checkType(const Option& option, const Json& value) {
  const auto want = [&](bool right, const char* kind) {
    if (!right) {
      refuse(option, serializeLossily(value), kind);
    }
  };
  switch (option.kind) {
    case Kind::flag:
      return want(value.is_boolean(), "true or false");
    case Kind::integer:
      return want(isInteger(value), "a whole number");
    case Kind::number:
      return want(value.is_number(), "a number");
    case Kind::integers:
      return checkParts(option, value);
    case Kind::words:
      return want(
          value.is_array() && std::all_of(value.begin(), value.end(),
                                          [](const Json& word) { return word.is_string(); }),
          "an array of texts");
    default:
      return want(value.is_string(), "a text");
  }
}

Json checked(const Option& option, std::span<const std::string> words) {
  Json value = single(option, words);
  check(option, value);
  return value;
}

}  // namespace

std::string_view nameOf(const Option& option) {
  return option.spelling.empty() ? option.placeholder
                                 : option.spelling.substr(option.spelling.rfind(',') + 1);
}

Json valueOf(const Option& option, std::span<const std::string> words) {
  if (option.several) {
    Json values = Json::array();
    const std::size_t count = valueCount(option);
    for (; words.size() >= count; words = words.subspan(count)) {
      values.push_back(checked(option, words.first(count)));
    }
    return values;
  }
  return checked(option, words);
}

void check(const Option& option, const Json& value) {
  checkType(option, value);
  if (value.is_number()) {
    const auto number = value.get<double>();
    if (number < option.range.least || number > option.range.most) {
      refuse(option, value.dump(), rangeText(option.range));
    }
  }
  if (option.kind == Kind::choice &&
      std::find(option.choices.begin(), option.choices.end(), value) == option.choices.end()) {
    refuse(option, value.dump(), choiceText(option.choices));
  }
}

bool hasAim(const Command& command, Aim aim) {
  return std::any_of(command.options.begin(), command.options.end(),
                     [aim](const Option& option) { return option.aim == aim; });
}

bool isAimed(const Command& command, const Json& arguments, Aim aim) {
  return std::any_of(command.options.begin(), command.options.end(), [&](const Option& option) {
    return option.aim == aim && arguments.contains(option.key);
  });
}

/// How the user tells a command in this way what it acts on: "--role, --title or --value".
std::string wayOf(const Command& command, Aim aim) {
  std::vector<std::string_view> names;
  for (const Option& option : command.options) {
    if (option.aim == aim) {
      names.push_back(nameOf(option));
    }
  }
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i) {
    const char* const last = aim == Aim::point ? " and " : " or ";
    text.append(i == 0 ? "" : i + 1 < names.size() ? ", " : last).append(names[i]);
  }
  return text;
}

void checkComplete(const Command& command, const Json& arguments) {
  const std::string name(command.name);
  const auto needed = [&](const Option& option) {
    const bool partOfPoint = option.aim == Aim::point && isAimed(command, arguments, Aim::point);
    if ((option.required || partOfPoint) && !arguments.contains(option.key)) {
      throw BadArgument(std::string(nameOf(option)) + " is missing");
    }
  };
  std::for_each(command.options.begin(), command.options.end(), needed);
  if (!hasAim(command, Aim::words)) {
    return;
  }
  int aims = 0;
  std::string ways;
  for (const Aim aim : {Aim::words, Aim::ref, Aim::point}) {
    aims += isAimed(command, arguments, aim) ? 1 : 0;
    ways += hasAim(command, aim) ? (ways.empty() ? "" : ", or ") + wayOf(command, aim) : "";
  }
  if (aims != 1) {
    throw BadArgument(name + " needs " + ways + (aims > 1 ? ", not both" : ""));
  }
  for (const Option& option : command.options) {
    if (option.aim == Aim::words && arguments.value(option.key, Json()) == "" &&
        !truthy(arguments, "exact")) {
      throw BadArgument(std::string(nameOf(option)) +
                        ": an empty text is part of every other, unless it is meant to be exact");
    }
  }
}

Json requestOf(const Command& command, const Json& arguments) {
  Json request{{"op", command.op}};
  const auto put = [&request](std::string_view member, const Json& object, std::string_view key) {
    if (!member.empty() && object.contains(key)) {
      request[std::string(member)] = object.at(std::string(key));
    }
  };
  for (const Option& option : command.options) {
    put(option.member, arguments, option.key);
    const auto value = arguments.find(option.key);
    for (const Part& part : option.parts) {
      if (value != arguments.end()) {
        put(part.member, *value, part.name);
      }
    }
  }
  return request;
}

}  // namespace tervain::ctl
