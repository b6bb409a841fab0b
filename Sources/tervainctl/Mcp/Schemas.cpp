#include "tervainctl/Mcp/Schemas.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "tervainctl/CommandTable/Arguments.h"

namespace tervain::mcp {
namespace {

/// The result of "exec". The others have text alone, or say in theirs what is in it.
constexpr const char* execOutput = R"({
  "type": "object",
  "properties": {
    "exitCode": {"type": ["integer", "null"],
                 "description": "128 + the signal that ended it; null if that is unknown"},
    "stdout": {"type": "string"},
    "stderr": {"type": "string"},
    "truncated": {"type": "boolean", "description": "Whether some of the output was left out"}
  },
  "required": ["exitCode", "stdout", "stderr", "truncated"]
})";

Json limit(double number) {
  const auto whole = static_cast<std::int64_t>(number);
  return static_cast<double>(whole) == number ? Json(whole) : Json(number);
}

const char* typeOf(ctl::Kind kind) {
  switch (kind) {
    case ctl::Kind::flag:
      return "boolean";
    case ctl::Kind::integer:
      return "integer";
    case ctl::Kind::number:
      return "number";
    case ctl::Kind::integers:
      return "object";
    case ctl::Kind::words:
      return "array";
    default:
      return "string";
  }
}

Json schemaOf(const ctl::Option& option) {
  Json schema{{"type", typeOf(option.kind)}, {"description", option.help}};
  if (std::isfinite(option.range.least)) {
    schema["minimum"] = limit(option.range.least);
  }
  if (std::isfinite(option.range.most)) {
    schema["maximum"] = limit(option.range.most);
  }
  if (!option.choices.empty()) {
    schema["enum"] = option.choices;
  }
  if (option.kind == ctl::Kind::words) {
    schema["items"]["type"] = "string";
  }
  for (const ctl::Part& part : option.parts) {
    schema["properties"][std::string(part.name)]["type"] = "integer";
    schema["required"].push_back(part.name);
    schema["additionalProperties"] = false;
  }
  return schema;
}

Json schemaOf(const ctl::Command& command) {
  Json schema{{"type", "object"}, {"properties", Json::object()}, {"additionalProperties", false}};
  for (const ctl::Option& option : command.options) {
    schema["properties"][std::string(option.key)] = schemaOf(option);
    if (option.required) {
      schema["required"].push_back(option.key);
    }
  }
  return schema;
}

Json describe(const ctl::Tool& tool, const ctl::Command& command) {
  std::string text = std::string(command.help) + ".";
  text += command.details.empty() ? "" : " " + std::string(command.details);
  Json described{{"name", tool.name},
                 {"description", text},
                 {"inputSchema", schemaOf(command)},
                 {"annotations",
                  {{"readOnlyHint", tool.hints.readOnly},
                   {"destructiveHint", tool.hints.destructive},
                   {"idempotentHint", tool.hints.idempotent},
                   {"openWorldHint", tool.hints.openWorld}}}};
  if (tool.name == "exec") {
    described["outputSchema"] = Json::parse(execOutput);
  }
  return described;
}

}  // namespace

const ctl::Command* toolCommand(std::string_view name) {
  static const auto made = [] {
    std::map<std::string_view, ctl::ToolCommand> all;
    for (const ctl::Tool& tool : ctl::tools()) {
      all.emplace(tool.name, ctl::commandOf(tool));
    }
    return all;
  }();
  const auto found = made.find(name);
  return found == made.end() ? nullptr : &found->second.command;
}

Json toolList() {
  Json list = Json::array();
  for (const ctl::Tool& tool : ctl::tools()) {
    list.push_back(describe(tool, *toolCommand(tool.name)));
  }
  return list;
}

void checkArguments(const ctl::Command& command, const Json& arguments) {
  for (const auto& [key, value] : arguments.items()) {
    const auto isKey = [&name = key](const ctl::Option& option) { return option.key == name; };
    const auto option = std::find_if(command.options.begin(), command.options.end(), isKey);
    if (option == command.options.end()) {
      std::string known;
      for (const ctl::Option& other : command.options) {
        known.append(known.empty() ? "" : ", ").append(other.key);
      }
      throw ctl::BadArgument("there is no " + Json(key).dump() + "; " + std::string(command.name) +
                             " takes " + (known.empty() ? "nothing" : known));
    }
    ctl::check(*option, value);
  }
  ctl::checkComplete(command, arguments);
}

}  // namespace tervain::mcp
