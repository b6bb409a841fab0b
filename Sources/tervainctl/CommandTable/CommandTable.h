#pragma once

#include <limits>
#include <span>
#include <string_view>

/// Every command of tervainctl, its options and arguments: the one place that tells them. The
/// command line is parsed by it; help, the completions, the manual's list and the document's tables
/// are made from it.
namespace tervain::ctl {

/// Exit statuses of the tool itself.
inline constexpr int failed = 1;
inline constexpr int badUsage = 2;
/// What a shell reports of a program that SIGPIPE has ended: the reader of the output has gone.
inline constexpr int outputClosed = 141;
/// What timeout(1) reports of a program that has not ended in time.
inline constexpr int timedOut = 124;
/// The command of an exec could not be run, or was lost; its own status can be anything.
inline constexpr int notRun = 255;

/// What an option's value is, and how JSON has it.
enum class Kind {
  flag,      // takes no value: true where it is given
  integer,   // a number of at most 64 bits
  number,    // seconds, for example
  integers,  // an object with an integer for each of the option's `parts`
  text,
  choice,   // a text, one of the option's `choices`
  file,     // a text: a file on this side
  address,  // a text: where an agent listens
  words,    // the rest of the line, an array of texts; the last of a command's arguments
};

/// What a number may be, both ends included.
struct Range {
  double least = -std::numeric_limits<double>::infinity();
  double most = std::numeric_limits<double>::infinity();
};

/// How an option tells what a command acts on, for commands that are told it in one of several
/// ways.
enum class Aim {
  none,
  words,  // of an element
  ref,    // of an element; good on one connection, so in a session only
  point,  // on the screen
};

/// One of several integers that stand together.
struct Part {
  std::string_view name;
  std::string_view member{};  // as Option's
};

/// An option, or an argument that is told by its place. Texts are sentences or parts of such,
/// without the full stop.
struct Option {
  std::string_view key;         // its name among a call's arguments
  std::string_view spelling{};  // "--name" or "-n,--name"; empty: an argument
  Kind kind = Kind::text;
  std::string_view placeholder{};  // stands for the value, or, with blanks between, for the values
  std::string_view help;
  bool required = false;
  bool several = false;  // may be given again and again: an array of values
  Range range{};
  std::span<const std::string_view> choices{};
  std::span<const Part> parts{};
  std::string_view member{};       // of the command's request that it is; empty: not part of it
  std::string_view environment{};  // the variable that has it where the line doesn't
  char separator = 0;              // between the integers of one word; none: each is a word
  Aim aim = Aim::none;
  std::string_view group{};  // a heading in the help for options that belong together
};

/// Where a command is of use.
enum class Place {
  anywhere,
  alone,  // takes the connection, or standard input, for itself
};

/// A request that has not been answered after so many seconds never will: the agent gives up what
/// hangs after 15.
inline constexpr double usualLimit = 60;
/// The longest text that a request holds takes the agent 53 minutes to type.
inline constexpr double typingLimit = 3600;
inline constexpr double noLimit = std::numeric_limits<double>::infinity();

struct Command {
  std::string_view name;
  std::string_view help;       // a sentence without its full stop
  std::string_view details{};  // more of them, complete; blank lines part paragraphs
  std::string_view example{};  // a line for the shell, or for a session
  std::string_view op{};       // the request that it makes; empty: none, or not just one
  std::span<const Option> options{};
  Place place = Place::anywhere;
  int failure = failed;       // the exit status when it can't be done
  double limit = usualLimit;  // the seconds that it may take where the user says nothing
  bool timesItself = false;   // keeps to the user's limit in a way of its own
};

std::span<const Command> commands();

/// The command of this name, or null.
const Command* findCommand(std::string_view name);

/// The options that every command has: how the agent is reached, its limit of time, and help. In a
/// session they have the limit alone.
std::span<const Option> commonOptions();

/// The one of them that says how long a command may take.
const Option& timeoutOption();

/// The option that asks for the version, which stands before any command.
const Option& versionOption();

/// What takes the rest of a command's line, or null.
const Option* wordsOf(const Command& command);

/// How many words of a line an option's value is. Those of `Kind::words` count as one.
std::size_t valueCount(const Option& option);

}  // namespace tervain::ctl
