#include "tervainctl/CommandLine.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <map>
#include <sstream>

#include "tervainctl/CommandTable/Text.h"
#include "tervainctl/Commands.h"

namespace tervain::ctl {
namespace {

/// The option that has this spelling, of a command or of all; null if there is none.
const Option* findOption(const Command* command, std::string_view spelling) {
  const auto spells = [spelling](const Option& option) {
    const auto all = split(option.spelling, ',');
    return std::find(all.begin(), all.end(), spelling) != all.end();
  };
  for (const auto options : {commonOptions(), command ? command->options : commonOptions()}) {
    const auto found = std::find_if(options.begin(), options.end(), spells);
    if (found != options.end()) {
      return &*found;
    }
  }
  return nullptr;
}

/// How many of the words after this one belong to it: an option's values, unless they are in the
/// same word ("--name=value", "-nvalue"). In "-abc" letters are options up to one that has a value.
std::size_t valuesBehind(const Command* command, std::string_view word) {
  const auto countOf = [command](std::string_view spelling) {
    const Option* option = findOption(command, spelling);
    return option ? valueCount(*option) : 0;
  };
  if (word.substr(0, 2) == "--") {
    return word.find('=') == word.npos ? countOf(word) : 0;
  }
  for (std::size_t i = 1; i < word.size(); ++i) {
    const std::size_t count = countOf(std::string{'-', word[i]});
    if (count > 0) {
      return i + 1 == word.size() ? count : count - 1;
    }
  }
  return 0;
}

/// A line in two: what tervainctl parses, and the rest, which is a command's own if it takes words.
/// The parser doesn't get to see those: most would be options to it.
struct Cut {
  Words own;
  Words rest;
  const Command* command = nullptr;  // the one that takes the rest
};

Cut cutWords(Words line) {
  const Command* command = nullptr;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const std::string& word = line[i];
    const bool dashes = word == "--";
    if (!dashes && word.size() > 1 && word.front() == '-') {
      i += valuesBehind(command, word);
    } else if (command) {
      const auto at = line.begin() + static_cast<std::ptrdiff_t>(i);
      return {{line.begin(), at}, {at + (dashes ? 1 : 0), line.end()}, command};
    } else {
      command = findCommand(word);
      if (!command || !wordsOf(*command)) {
        break;
      }
    }
  }
  const bool words = command && wordsOf(*command);
  return {std::move(line), {}, words ? command : nullptr};
}

/// Where the words of an element stand in a ref's place, the arguments of a line are those behind
/// it.
void leaveOutRef(const Command& command, Json& arguments) {
  if (!isAimed(command, arguments, Aim::words)) {
    return;
  }
  Json moved;
  for (const Option& option : command.options) {
    if (option.spelling.empty() && (option.aim == Aim::ref || !moved.is_null())) {
      std::swap(moved, arguments[std::string(option.key)]);
    }
  }
  if (!moved.is_null()) {
    throw BadArgument(std::string(command.name) + " is told its element by words and by a REF");
  }
  for (const Option& option : command.options) {
    if (const auto none = arguments.find(option.key); none != arguments.end() && none->is_null()) {
      arguments.erase(none);
    }
  }
}

/// Options of the table as the parser knows them.
class Declared {
 public:
  void add(CLI::App& app, std::span<const Option> options) {
    // What else is required depends on how the command is told what it acts on.
    const bool plain = std::all_of(options.begin(), options.end(),
                                   [](const Option& option) { return option.aim == Aim::none; });
    for (const Option& option : options) {
      if (option.key == "help") {  // the parser's own business
        app.set_help_flag(std::string(option.spelling), std::string(option.help));
      } else {
        declared_.emplace_back(&option, &declare(app, option, plain));
      }
    }
  }

  /// What was given. Throws BadArgument.
  void collect(Json& arguments) const {
    for (const auto& [option, parsed] : declared_) {
      if (parsed->count() > 0) {
        arguments[std::string(option->key)] = valueOf(*option, parsed->results());
      }
    }
  }

 private:
  static CLI::Option& declare(CLI::App& app, const Option& option, bool plain) {
    const std::string name(option.spelling.empty() ? option.placeholder : option.spelling);
    const std::string help(option.help);
    if (option.kind == Kind::flag) {
      return grouped(*app.add_flag(name, help), option);
    }
    const CLI::callback_t keep = [](const CLI::results_t&) { return true; };
    CLI::Option& declared = *app.add_option(name, keep, help);
    declared.required(plain && option.required && option.kind != Kind::words)
        ->envname(std::string(option.environment));
    declared.type_name(option.spelling.empty() ? "" : std::string(option.placeholder));
    declared.type_size(static_cast<int>(valueCount(option)));
    if (option.several) {
      declared.multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    }
    return grouped(declared, option);
  }

  static CLI::Option& grouped(CLI::Option& declared, const Option& option) {
    return option.group.empty() ? declared : *declared.group(std::string(option.group));
  }

  std::vector<std::pair<const Option*, CLI::Option*>> declared_;
};

/// The parser, fed with the table.
class Parser {
 public:
  explicit Parser(Source source) {
    if (source == Source::shell) {
      app_.description("Talks to the TervainVMAgent of a virtual machine.");
      app_.name("tervainctl");
      app_.set_version_flag(std::string(versionOption().spelling), "tervainctl " TERVAIN_VERSION,
                            std::string(versionOption().help));
      common_.add(app_, commonOptions());
    } else {
      common_.add(app_, {&timeoutOption(), 1});
    }
    app_.fallthrough();
    app_.require_subcommand(1);
    for (const Command& command : commands()) {
      add(command);
    }
  }

  Invocation parse(Cut cut) {
    std::reverse(cut.own.begin(), cut.own.end());  // the order in which the parser takes them
    app_.parse(std::move(cut.own));
    const Command& command = *findCommand(app_.get_subcommands().front()->get_name());
    Json arguments = Json::object();
    common_.collect(arguments);
    own_.at(&command).collect(arguments);
    if (const Option* words = wordsOf(command)) {
      if (cut.rest.empty()) {
        throw BadArgument(std::string(command.name) + " needs a command");
      }
      arguments[std::string(words->key)] = valueOf(*words, cut.rest);
    }
    leaveOutRef(command, arguments);
    checkComplete(command, arguments);
    return {command, std::move(arguments)};
  }

  /// Prints the help that was asked for, or what is wrong, and returns the exit status.
  int explain(const CLI::ParseError& error) {
    const Words unknown = app_.remaining();
    if (error.get_exit_code() != 0 && app_.get_subcommands().empty() && !unknown.empty()) {
      complain("no such command: " + unknown.front());
      return badUsage;
    }
    std::ostringstream help;
    std::ostringstream complaint;
    const int status = app_.exit(error, help, complaint);
    print(help.str());
    if (status == 0) {
      return 0;
    }
    std::string text = complaint.str();
    text.erase(text.find_last_not_of('\n') + 1);
    complain(text);
    return badUsage;
  }

 private:
  void add(const Command& command) {
    CLI::App& app = *app_.add_subcommand(std::string(command.name), std::string(command.help));
    app.footer(filled(std::string(command.details)));
    own_[&command].add(app, command.options);
  }

  CLI::App app_{"Commands of a session, one a line.", ""};
  Declared common_;
  std::map<const Command*, Declared> own_;
};

}  // namespace

std::variant<Invocation, int> parseCommandLine(Words line, Source source) {
  Cut cut = cutWords(std::move(line));
  const int failure = cut.command ? std::max(badUsage, cut.command->failure) : badUsage;
  Parser parser(source);
  try {
    return parser.parse(std::move(cut));
  } catch (const CLI::ParseError& error) {
    return parser.explain(error) == 0 ? 0 : failure;
  } catch (const BadArgument& error) {
    complain(error.what());
    return failure;
  }
}

}  // namespace tervain::ctl
