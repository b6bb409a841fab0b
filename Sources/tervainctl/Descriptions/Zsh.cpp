#include "tervainctl/CommandTable/Text.h"
#include "tervainctl/Descriptions/Descriptions.h"

namespace tervain::ctl {
namespace {

std::string quote(std::string_view text) {
  return quoted(text, R"('\'')");
}

/// What stands between the colons or brackets of an entry.
std::string escaped(std::string_view text) {
  std::string result = replaced(text, "\\", "\\\\");
  for (const std::string_view special : {":", "[", "]"}) {
    result = replaced(result, special, "\\" + std::string(special));
  }
  return result;
}

std::string actionOf(const Option& option) {
  if (option.kind == Kind::file) {
    return "_files";
  }
  if (option.kind == Kind::address) {
    return "_tervainctl_address";
  }
  const std::vector<std::string> words = offers(option);
  return words.empty() ? " " : "(" + joined(words) + ")";
}

std::string valuesOf(const Option& option) {
  std::string text;
  if (option.kind != Kind::flag) {
    for (const std::string_view placeholder : placeholders(option)) {
      text += ":" + escaped(placeholder) + ":" + actionOf(option);
    }
  }
  return text;
}

/// The entry of an option as `_arguments` takes it. The one for all spellings is spread by
/// a brace expansion.
std::string optionSpec(const Option& option, std::string_view excluded) {
  const std::string rest = quote("[" + escaped(option.help) + "]" + valuesOf(option));
  const bool several = option.spelling.find(',') != option.spelling.npos;
  const std::string all(option.spelling);
  const std::string others = excluded.empty() ? replaced(all, ",", " ") : std::string(excluded);
  if (option.several) {
    return "'*'" + all + rest;
  }
  return (several || !excluded.empty() ? "'(" + others + ")'" : "") +
         (several ? "{" + all + "}" : all) + rest;
}

std::string argumentSpec(const Option& option, int place) {
  const std::string message = escaped(option.placeholder) + ":" + actionOf(option);
  if (option.kind == Kind::words) {
    return quote("*:" + message);
  }
  return quote(std::to_string(place) + (option.required ? ":" : "::") + message);
}

std::string line(const std::string& entry) {
  return "        " + entry + "\n";
}

}  // namespace

std::string zshCommon() {
  std::string text;
  for (const Option& option : commonOptions()) {
    text += line(optionSpec(option, option.key == "help" ? "- *" : ""));
  }
  return text;
}

std::string zshCases() {
  std::string text =
      "    none)\n      own=(\n" + line(optionSpec(versionOption(), "- *")) + "      ) ;;\n";
  for (const Command& command : commands()) {
    text.append("    ").append(command.name).append(")\n      own=(\n");
    int place = 0;
    for (const Option& option : command.options) {
      text +=
          line(option.spelling.empty() ? argumentSpec(option, ++place) : optionSpec(option, ""));
    }
    text += wordsOf(command) ? "      )\n      how=(-A '-*') ;;\n" : "      ) ;;\n";
  }
  return text;
}

std::string zshCommands() {
  std::string text;
  for (const Command& command : commands()) {
    text += "    " + quote(std::string(command.name) + ":" + escaped(command.help)) + "\n";
  }
  return text;
}

}  // namespace tervain::ctl
