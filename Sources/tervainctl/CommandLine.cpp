#include "tervainctl/CommandLine.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <sstream>

namespace tervain::ctl {
namespace {

bool takesWords(std::string_view argument) {
  return std::any_of(commands().begin(), commands().end(), [argument](const Command& command) {
    return command.takesWords && argument == command.name;
  });
}

/// The words behind "--" are a command's own where it takes them: the parser, which would make a
/// list of a word in brackets, does not get to see them. For every other command "--" means that no
/// options follow.
Words cutWords(Words& arguments) {
  const auto dashes = std::find(arguments.begin(), arguments.end(), "--");
  if (dashes == arguments.end() || std::none_of(arguments.begin(), dashes, takesWords)) {
    return {};
  }
  Words words(dashes + 1, arguments.end());
  arguments.erase(dashes, arguments.end());
  return words;
}

int explain(const CLI::App& app, const CLI::ParseError& error) {
  const Words unknown = app.remaining();
  if (error.get_exit_code() != 0 && app.get_subcommands().empty() && !unknown.empty()) {
    complain("no such command: " + unknown.front());
    return badUsage;
  }
  std::ostringstream help;
  std::ostringstream complaint;
  const int status = app.exit(error, help, complaint);
  print(help.str());
  if (status == 0) {
    return 0;
  }
  std::string text = complaint.str();
  text.erase(text.find_last_not_of('\n') + 1);
  complain(text);
  return badUsage;
}

}  // namespace

int runCommandLine(CLI::App& app, Words arguments, const Perform& perform) {
  const Words words = cutWords(arguments);
  std::reverse(arguments.begin(), arguments.end());  // the order in which the parser takes them
  int status = badUsage;
  for (const Command& command : commands()) {
    CLI::App& options = *app.add_subcommand(command.name, command.help);
    if (command.place == Place::session) {
      options.group("Subcommands in a session");
    }
    options.final_callback([&, action = command.declare(options)] {
      if (command.takesWords && words.empty()) {
        complain(std::string(command.name) + " needs a command: -- COMMAND...");
        status = std::max(badUsage, command.failure);
      } else {
        status = perform(command, action, words);
      }
    });
  }
  app.require_subcommand(1);
  try {
    app.parse(std::move(arguments));
  } catch (const CLI::ParseError& error) {
    return explain(app, error);
  }
  return status;
}

}  // namespace tervain::ctl
