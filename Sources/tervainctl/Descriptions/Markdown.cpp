#include "tervainctl/CommandTable/Text.h"
#include "tervainctl/Descriptions/Descriptions.h"

namespace tervain::ctl {
namespace {

constexpr std::string_view header = "| command | what it does | example |";

std::string row(const Command& command) {
  const std::string example(command.example);
  return "| `" + std::string(command.name) + "` | " + std::string(command.help) + " | " +
         (example.empty() ? "below" : "`" + replaced(example, "|", "\\|") + "`") + " |\n";
}

std::string table() {
  std::string text = std::string(header) + "\n|---|---|---|\n";
  for (const Command& command : commands()) {
    text += row(command);
  }
  return text;
}

}  // namespace

std::string documentWithTables(std::string_view document) {
  std::string text;
  bool inTable = false;
  if (document.substr(document.size() - 1) == "\n") {
    document.remove_suffix(1);
  }
  for (const std::string_view line : split(document, '\n')) {
    if (line == header) {
      text += table();
      inTable = true;
    }
    inTable = inTable && line.substr(0, 1) == "|";
    text.append(inTable ? "" : std::string(line) + "\n");
  }
  return text;
}

}  // namespace tervain::ctl
