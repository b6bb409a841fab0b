#include <algorithm>
#include <cctype>

#include "tervainctl/CommandTable/Text.h"
#include "tervainctl/Descriptions/Descriptions.h"

namespace tervain::ctl {
namespace {

/// Text as mdoc has it: a line a sentence, none of which could be taken for a request.
std::string prose(std::string_view text) {
  std::string lines = replaced(replaced(text, "\\", "\\e"), "--", "\\-\\-");
  for (std::size_t at = lines.find(". "); at != lines.npos; at = lines.find(". ", at)) {
    lines[at + 1] = '\n';
  }
  lines = filled(replaced(lines, "\n\n", "\n.Pp\n"));
  return replaced(lines, "\n'", "\n\\&'") + "\n";
}

std::string sentence(std::string_view text) {
  return prose(std::string(text) + ".");
}

std::string placeholder(const Option& option) {
  std::string text = replaced(option.placeholder, "...", " ...");
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text.empty() ? "" : "Ar " + text;
}

/// How an option is written, in mdoc's terms.
std::string usage(const Option& option) {
  std::string text;
  for (const std::string_view spelling : spellings(option)) {
    text.append(text.empty() ? "Fl " : " , Fl ").append(spelling.substr(1));
  }
  const std::string value = placeholder(option);
  return text + (text.empty() || value.empty() ? "" : " ") + value;
}

std::string list(std::span<const Option> options) {
  std::string text = ".Bl -tag -width Ds\n";
  for (const Option& option : options) {
    text += ".It " + usage(option) + "\n" + sentence(option.help);
  }
  return options.empty() ? "" : text + ".El\n";
}

std::string item(const Command& command) {
  std::string text = ".It Cm " + std::string(command.name);
  for (const Option& option : command.options) {
    text += option.required ? " " + usage(option) : " Oo " + usage(option) + " Oc";
  }
  text += "\n" + sentence(command.help);
  text += command.details.empty() ? "" : prose(command.details);
  return text + list(command.options);
}

}  // namespace

std::string manualOptions() {
  std::vector<Option> all(commonOptions().begin(), commonOptions().end());
  all.push_back(versionOption());
  return list(all);
}

std::string manualCommands() {
  std::string text = ".Bl -tag -width Ds\n";
  for (const Command& command : commands()) {
    text += item(command);
  }
  return text + ".El\n";
}

}  // namespace tervain::ctl
