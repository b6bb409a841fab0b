#include <map>

#include "tervainctl/CommandTable/Text.h"
#include "tervainctl/Descriptions/Descriptions.h"

namespace tervain::ctl {
namespace {

std::string quote(std::string_view text) {
  return quoted(replaced(text, "\\", "\\\\"), "\\'");
}

std::string complete(const std::string& condition, const std::string& what, std::string_view help) {
  return "complete -c tervainctl -n " + quote(condition) + " " + what + " -d " + quote(help) + "\n";
}

/// What is offered for a value, or that files are; nothing when there is nothing to offer.
std::string valueOf(const Option& option) {
  if (option.kind == Kind::file) {
    return " -r -F";
  }
  const std::string words =
      option.kind == Kind::address ? "(__tervainctl_agents)" : joined(offers(option));
  return words.empty() ? "" : " -a " + quote(words);
}

std::string optionLine(const std::string& condition, const Option& option) {
  std::string what;
  for (const std::string_view spelling : spellings(option)) {
    const bool isLong = spelling.substr(0, 2) == "--";
    what.append(what.empty() ? "" : " ").append(isLong ? "-l " : "-s ");
    what.append(spelling.substr(isLong ? 2 : 1));
  }
  if (option.kind != Kind::flag) {
    what += (option.kind == Kind::file ? "" : " -x") + valueOf(option);
  }
  return complete(condition, what, option.help);
}

std::string commandLines(const Command& command) {
  const std::string name(command.name);
  std::string text = complete("__tervainctl_at 0", "-a " + name, command.help);
  int place = 0;
  for (const Option& option : command.options) {
    if (!option.spelling.empty()) {
      text += optionLine(wordsOf(command) ? "__tervainctl_at 1 " + name : "__tervainctl_in " + name,
                         option);
    } else if (++place; !valueOf(option).empty()) {
      text += complete("__tervainctl_at " + std::to_string(place) + " " + name,
                       valueOf(option).substr(1), option.help);
    }
  }
  return text;
}

}  // namespace

std::string fishValues() {
  std::map<std::size_t, std::string> cases;
  const auto add = [&cases](std::string_view command, std::span<const Option> options) {
    for (const Option& option : options) {
      for (const std::string_view spelling : spellings(option)) {
        cases[valueCount(option)].append(" '").append(command).append(" ").append(spelling) += "'";
      }
    }
  };
  add("any", commonOptions());
  std::string takingWords;
  for (const Command& command : commands()) {
    add(command.name, command.options);
    takingWords.append(wordsOf(command) ? " " + std::string(command.name) : "");
  }
  std::string text = "set -g __tervainctl_taking_words" + takingWords + "\n" +
                     "function __tervainctl_values -a option\n    switch $option\n";
  for (const auto& [count, names] : cases) {
    text += "        case" + names + "\n            echo " + std::to_string(count) + "\n";
  }
  return text + "        case '*'\n            echo 0\n    end\nend\n";
}

std::string fishCompletions() {
  std::string text = optionLine("__tervainctl_at 0", versionOption());
  for (const Option& option : commonOptions()) {
    text += optionLine("__tervainctl_ours", option);
  }
  for (const Command& command : commands()) {
    text += commandLines(command);
  }
  return text;
}

}  // namespace tervain::ctl
