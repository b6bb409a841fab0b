#include "tervainctl/CommandTable/CommandTable.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace tervain::ctl {
namespace {

using namespace std::literals;

constexpr Option agent{.key = "agent",
                       .spelling = "-a,--agent",
                       .kind = Kind::address,
                       .placeholder = "ADDRESS",
                       .help =
                           "The agent, by its name or address: vsock:CID[:PORT], unix:PATH, "
                           "unix-mux:PATH[:PORT] or exec:COMMAND",
                       .environment = "TERVAIN_AGENT"};
constexpr Option timeout{.key = "timeout",
                         .spelling = "--timeout",
                         .kind = Kind::number,
                         .placeholder = "SECONDS",
                         .help = "Give up after so long, with exit status 124",
                         .range = {.least = 0.001},
                         .environment = "TERVAIN_TIMEOUT"};
constexpr Option help{.key = "help",
                      .spelling = "-h,--help",
                      .kind = Kind::flag,
                      .help = "Print the options, of the command if one is named, and exit"};
constexpr Option version{.key = "version",
                         .spelling = "--version",
                         .kind = Kind::flag,
                         .help = "Print the version and exit"};
constexpr std::array common{agent, timeout, help};

// What several commands have.

constexpr Option json{
    .key = "json", .spelling = "--json", .kind = Kind::flag, .help = "Print the reply as it is"};
constexpr Option ref{.key = "ref",
                     .placeholder = "REF",
                     .help = "The element, by its ref in this session's last tree",
                     .required = true,
                     .member = "ref"};
constexpr Option x{.key = "x",
                   .kind = Kind::integer,
                   .placeholder = "X",
                   .help = "From the left of the main display; may be negative",
                   .required = true,
                   .member = "x"};
constexpr Option y{.key = "y",
                   .kind = Kind::integer,
                   .placeholder = "Y",
                   .help = "From its top; may be negative",
                   .required = true,
                   .member = "y"};

/// The same argument under another name.
constexpr Option named(Option option, std::string_view key, std::string_view placeholder) {
  option.key = option.member = key;
  option.placeholder = placeholder;
  return option;
}

/// The same argument where others can stand in its place.
constexpr Option aiming(Option option, Aim aim) {
  option.required = false;
  option.aim = aim;
  return option;
}

template <std::size_t... counts>
constexpr auto joined(const std::array<Option, counts>&... parts) {
  std::array<Option, (counts + ...)> all{};
  auto end = all.begin();
  ((end = std::copy(parts.begin(), parts.end(), end)), ...);
  return all;
}

constexpr std::string_view elementGroup = "Which element, by its words";
constexpr std::array words{Option{.key = "role",
                                  .spelling = "--role",
                                  .placeholder = "ROLE",
                                  .help = "Part of its role or subrole, in any case",
                                  .aim = Aim::words,
                                  .group = elementGroup},
                           Option{.key = "title",
                                  .spelling = "--title",
                                  .placeholder = "TITLE",
                                  .help = "Part of its title, in any case",
                                  .aim = Aim::words,
                                  .group = elementGroup},
                           Option{.key = "value",
                                  .spelling = "--value",
                                  .placeholder = "VALUE",
                                  .help = "Part of its value, in any case",
                                  .aim = Aim::words,
                                  .group = elementGroup},
                           Option{.key = "exact",
                                  .spelling = "--exact",
                                  .kind = Kind::flag,
                                  .help = "These are whole, in the same case",
                                  .group = elementGroup}};
constexpr Option pid{
    .key = "pid",
    .spelling = "--pid",
    .kind = Kind::integer,
    .placeholder = "PROCESS",
    .help = "The application's process (default: the frontmost application)",
    .range = {std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()},
    .group = elementGroup};
constexpr Option depth{.key = "depth",
                       .spelling = "--depth",
                       .kind = Kind::integer,
                       .placeholder = "LEVELS",
                       .help = "How many levels to search, 1 to 25 (default: 25)",
                       .range = {1, 25},
                       .group = elementGroup};
constexpr auto element = joined(words, std::array{pid, depth});
/// The same for commands that can be given a ref instead.
constexpr auto refOrWords = joined(element, std::array{aiming(ref, Aim::ref)});

// Each command's own.

constexpr std::array ping{json};

constexpr Option display{.key = "display",
                         .spelling = "--display",
                         .kind = Kind::integer,
                         .placeholder = "NUMBER",
                         .help = "Which display, counted from 0 (default: 0)",
                         .member = "display"};
constexpr std::array region{Part{"x"}, Part{"y"}, Part{"width"}, Part{"height"}};
constexpr std::array screenshot{
    display,
    Option{.key = "points",
           .spelling = "--points",
           .kind = Kind::flag,
           .help =
               "Make it as many pixels as clicks have points, so that a place in the picture is "
               "a place to click"},
    Option{.key = "max",
           .spelling = "--max",
           .kind = Kind::integer,
           .placeholder = "PIXELS",
           .help = "Make it smaller if its longer side has more pixels",
           .range = {1, 65535}},
    Option{.key = "region",
           .spelling = "--region",
           .kind = Kind::integers,
           .placeholder = "X,Y,W,H",
           .help = "Only this part of the display, in the points that clicks count",
           .parts = region,
           .separator = ','},
    Option{.key = "quality",
           .spelling = "--quality",
           .kind = Kind::integer,
           .placeholder = "PERCENT",
           .help = "How well to compress it (default: as the agent did, or 85 when it is changed)",
           .range = {1, 100}},
    Option{.key = "output",
           .spelling = "-o,--output",
           .kind = Kind::file,
           .placeholder = "FILE",
           .help = "The file to write (default: standard output)"}};

constexpr std::array inspect{pid, depth, display,
                             Option{.key = "output",
                                    .spelling = "-o,--output",
                                    .kind = Kind::file,
                                    .placeholder = "FILE",
                                    .help = "The page to write",
                                    .required = true}};

constexpr std::array buttons{"left"sv, "middle"sv, "right"sv};
constexpr std::array clickOptions{
    Option{.key = "button",
           .spelling = "--button",
           .kind = Kind::choice,
           .placeholder = "BUTTON",
           .help = "Which button: left, middle or right (default: left)",
           .choices = buttons,
           .member = "button"},
    Option{.key = "count",
           .spelling = "--count",
           .kind = Kind::integer,
           .placeholder = "COUNT",
           .help = "2 for a double-click, 3 for a triple-click (default: 1)",
           .range = {1, 3},
           .member = "count"}};
constexpr auto click =
    joined(clickOptions, element, std::array{aiming(x, Aim::point), aiming(y, Aim::point)});

constexpr std::array move{x, y};

constexpr std::array from{Part{"x", "fromX"}, Part{"y", "fromY"}};
constexpr std::array drag{Option{.key = "from",
                                 .spelling = "--from",
                                 .kind = Kind::integers,
                                 .placeholder = "X Y",
                                 .help = "The point to start at (default: where the pointer is)",
                                 .parts = from},
                          named(x, "toX", "TOX"), named(y, "toY", "TOY")};

constexpr std::array scroll{Option{.key = "dx",
                                   .spelling = "--dx",
                                   .kind = Kind::integer,
                                   .placeholder = "LINES",
                                   .help = "How many lines to the left; negative: to the right",
                                   .member = "dx"},
                            Option{.key = "dy",
                                   .spelling = "--dy",
                                   .kind = Kind::integer,
                                   .placeholder = "LINES",
                                   .help = "How many lines up; negative: down",
                                   .member = "dy"}};

constexpr std::array type{Option{.key = "text",
                                 .placeholder = "TEXT",
                                 .help = "The text, or - to read it from standard input",
                                 .required = true,
                                 .member = "text"}};

constexpr std::array key{Option{.key = "chord",
                                .placeholder = "CHORD",
                                .help = "Modifiers and a key, with + between them",
                                .required = true,
                                .member = "chord"}};

constexpr std::array launch{Option{.key = "name",
                                   .placeholder = "NAME",
                                   .help = "The application's name",
                                   .required = true,
                                   .member = "name"}};

/// What a request has as a member that is otherwise not part of one.
constexpr Option asMember(Option option, std::string_view member) {
  option.member = member;
  option.group = {};
  return option;
}

constexpr std::array tree{asMember(pid, "pid"),
                          Option{.key = "depth",
                                 .spelling = "--depth",
                                 .kind = Kind::integer,
                                 .placeholder = "LEVELS",
                                 .help = "How many levels, 1 to 25 (default: 12)",
                                 .member = "maxDepth"},
                          json};

constexpr std::array at{json, x, y};

constexpr auto& find = element;

constexpr auto wait = joined(element, std::array{Option{.key = "gone",
                                                        .spelling = "--gone",
                                                        .kind = Kind::flag,
                                                        .help = "Wait until no element fits"}});

constexpr auto press =
    joined(refOrWords, std::array{Option{.key = "action",
                                         .placeholder = "ACTION",
                                         .help = "One of its actions (default: AXPress)",
                                         .member = "action"}});

constexpr auto set =
    joined(refOrWords, std::array{Option{.key = "newValue",
                                         .placeholder = "VALUE",
                                         .help = "The new value, which may be empty",
                                         .required = true,
                                         .member = "value"}});

constexpr auto& focus = refOrWords;

constexpr std::array verbs{"get"sv, "set"sv};
constexpr std::array clipboard{
    Option{.key = "verb",
           .kind = Kind::choice,
           .placeholder = "get|set",
           .help = "Whether to print it or to set it",
           .required = true,
           .choices = verbs},
    Option{.key = "text",
           .placeholder = "TEXT",
           .help = "What to set it to (default: what standard input has, as with -)"}};

constexpr Option folder{.key = "cd",
                        .spelling = "--cd",
                        .placeholder = "DIRECTORY",
                        .help = "Start in this directory of the guest"};
constexpr Option variables{.key = "env",
                           .spelling = "--env",
                           .placeholder = "NAME=VALUE",
                           .help = "Set a variable for it; to be given once for each",
                           .several = true};

constexpr std::array shell{folder, variables};

constexpr std::array agents{
    Option{.key = "json", .spelling = "--json", .kind = Kind::flag, .help = "Print JSON"}};

constexpr std::array waitReady{
    Option{.key = "for",
           .spelling = "--for",
           .placeholder = "GRANTS",
           .help = "Wait for these grants as well, with commas between them: accessibility, "
                   "screenRecording, postEvent"}};

constexpr std::array exec{folder, variables,
                          Option{.key = "terminal",
                                 .spelling = "-t,--terminal",
                                 .kind = Kind::flag,
                                 .help = "Give the command a terminal, where we have one"},
                          Option{.key = "noInput",
                                 .spelling = "-n,--no-input",
                                 .kind = Kind::flag,
                                 .help = "Give the command no input, leave ours unread"},
                          Option{.key = "command",
                                 .kind = Kind::words,
                                 .placeholder = "COMMAND...",
                                 .help = "One word is a command line for the guest's shell; "
                                         "several are a program and its arguments, which arrive as "
                                         "they are given",
                                 .required = true}};

constexpr std::array events{
    Option{.key = "delete",
           .spelling = "--delete",
           .kind = Kind::flag,
           .help = "Have the guest delete the event files once it has sent them",
           .member = "truncate"},
    Option{.key = "dir",
           .spelling = "--dir",
           .placeholder = "DIRECTORY",
           .help = "The guest's directory to collect from",
           .member = "dir"},
    Option{.key = "maxBytes",
           .spelling = "--max-bytes",
           .kind = Kind::integer,
           .placeholder = "BYTES",
           .help = "How many bytes of events to take at most",
           .range = {.least = 0},
           .member = "maxBytes"}};

constexpr std::array conform{
    Option{.key = "app",
           .spelling = "--app",
           .placeholder = "NAME",
           .help = "The text editor to work with (default: TextEdit on macOS, otherwise mousepad)"},
    Option{.key = "other",
           .spelling = "--other",
           .placeholder = "NAME",
           .help = "An application to bring in front of it (default: Calculator on macOS, "
                   "otherwise featherpad)"},
    Option{.key = "noDesktop",
           .spelling = "--no-desktop",
           .kind = Kind::flag,
           .help = "Launch no application"},
    Option{.key = "agent",
           .kind = Kind::address,
           .placeholder = "ADDRESS",
           .help = "Where the agent listens, instead of --agent"}};

constexpr std::array aiHosts{
    "generic"sv,    "claude-code"sv, "claude-desktop"sv, "cline"sv,    "codex"sv, "cursor"sv,
    "gemini-cli"sv, "goose"sv,       "vscode"sv,         "windsurf"sv, "zed"sv};
constexpr std::array mcpConfig{Option{.key = "client",
                                      .kind = Kind::choice,
                                      .placeholder = "CLIENT",
                                      .help = "The host; generic for one that is not among them",
                                      .required = true,
                                      .choices = aiHosts}};

constexpr std::array table{
    Command{.name = "ping",
            .help = "Show the agent's version, displays and privacy grants",
            .example = "tervainctl ping",
            .op = "ping",
            .options = ping},
    Command{.name = "cursor",
            .help = "Show where the pointer is",
            .example = "tervainctl cursor",
            .op = "cursor_position"},
    Command{.name = "screenshot",
            .help = "Take a picture of a display, as JPEG",
            .details = "Its size in pixels and its scale go to standard error. It is never made "
                       "larger. The points of --region count from the top left of the display that "
                       "is pictured. That of the main display is 0,0, as for clicks; where another "
                       "display lies among them the agent does not tell.",
            .example = "tervainctl screenshot -o screen.jpg",
            .op = "screenshot",
            .options = screenshot},
    Command{.name = "click",
            .help = "Click at a point, or on an element by its words",
            .details = "An element is clicked in the middle of what can be seen of it.",
            .example = "tervainctl click 300 200 --button right",
            .op = "click",
            .options = click},
    Command{.name = "move",
            .help = "Move the pointer to a point",
            .example = "tervainctl move 300 200",
            .op = "move",
            .options = move},
    Command{.name = "drag",
            .help = "Drag with the left button, from where the pointer is or from a point",
            .example = "tervainctl drag --from 60 60 400 300",
            .op = "drag",
            .options = drag},
    Command{.name = "scroll",
            .help = "Scroll what is under the pointer, by lines",
            .example = "tervainctl scroll --dy -3",
            .op = "scroll",
            .options = scroll},
    Command{.name = "type",
            .help = "Type a text, or what standard input has, line feeds and all",
            .example = "printf 'two words' | tervainctl type -",
            .op = "type",
            .options = type,
            .limit = typingLimit},
    Command{.name = "key",
            .help = "Press a key, such as return or cmd+shift+z",
            .example = "tervainctl key cmd+shift+z",
            .op = "key",
            .options = key},
    Command{.name = "launch",
            .help = "Start an application, or bring it up",
            .example = "tervainctl launch mousepad",
            .op = "launch_app",
            .options = launch},
    Command{.name = "tree",
            .help = "Show an application's elements as an outline",
            .example = "tervainctl tree --depth 4",
            .op = "ax_dump",
            .options = tree},
    Command{.name = "at",
            .help = "Show the element at a point",
            .example = "tervainctl at 300 200",
            .op = "ax_element_at",
            .options = at},
    Command{.name = "find",
            .help = "Show the elements that have these words",
            .details = "The exit status is 1 if there are none.",
            .example = "tervainctl find --role textarea",
            .options = find},
    Command{.name = "wait",
            .help = "Wait until an element has these words, or none has them, and show it",
            .details = "The exit status is 124 if that has not happened within a minute, or what "
                       "--timeout says.",
            .example = "tervainctl wait --role textarea --timeout 5",
            .options = wait,
            .timesItself = true},
    Command{.name = "press",
            .help = "Perform an action of an element",
            .details = "It is never tried again, as it may have had its effect: look first.",
            .example = "tervainctl press --title help",
            .op = "ax_action",
            .options = press},
    Command{.name = "set",
            .help = "Set an element's value",
            .example = "tervainctl set --role textarea 'Ada Lovelace'",
            .op = "ax_set_value",
            .options = set},
    Command{.name = "focus",
            .help = "Give an element the keyboard focus",
            .example = "tervainctl focus --role textarea",
            .op = "ax_focus",
            .options = focus},
    Command{.name = "inspect",
            .help = "Write a page that shows the screen with all of an application's elements",
            .details = "One file for any browser, which needs nothing else: the picture with a box "
                       "for every element, the outline, and for each element the command that "
                       "finds and presses it.",
            .example = "tervainctl inspect -o screen.html",
            .op = "screenshot",
            .options = inspect},
    Command{.name = "clipboard",
            .help = "Print the guest's clipboard, or set it",
            .details = "With pbpaste and pbcopy on macOS; on Linux with what there is of "
                       "wl-clipboard, xclip and xsel.",
            .example = "tervainctl clipboard set 'two words'",
            .options = clipboard,
            .place = Place::alone},
    Command{.name = "exec",
            .help = "Run a command in the guest, with its input, output, signals and exit status",
            .details =
                "The command begins with the first word that is no option of tervainctl's, or "
                "behind --.\n"
                "\n"
                "With --terminal the guest makes a terminal of the size of ours, and ~. at the "
                "start of a line ends the connection.\n"
                "\n"
                "Standard input, output and error are the command's; INT, TERM, HUP and QUIT are "
                "passed on to it. The exit status is its own, or 255 if it could not be run or was "
                "lost. A command that leaves more than 4 MiB of its input unread gets no signals "
                "until it reads on. One that can't be sent within five seconds ends tervainctl, "
                "and so the command.",
            .example = "tervainctl exec 'uname -s; exit 7'",
            .options = exec,
            .place = Place::alone,
            .failure = notRun,
            .limit = noLimit},
    Command{.name = "shell",
            .help = "Log in to the guest: its user's shell, in a terminal where we have one",
            .details = "The exit status is the shell's. In a terminal, ~. at the start of a line "
                       "ends the connection, and ~~ stands for ~.",
            .example = "echo 'uname -s' | tervainctl shell",
            .options = shell,
            .place = Place::alone,
            .failure = notRun,
            .limit = noLimit},
    Command{.name = "agents",
            .help = "List the agents that have a name, whether they answer, and their grants",
            .details = "They are all asked at once. The exit status is 1 if one doesn't answer.",
            .example = "tervainctl agents",
            .options = agents,
            .place = Place::alone,
            .timesItself = true},
    Command{.name = "wait-ready",
            .help = "Wait until the agent has answered steadily, for two seconds",
            .example = "tervainctl wait-ready --for accessibility --timeout 300",
            .options = waitReady,
            .place = Place::alone,
            .limit = noLimit},
    Command{.name = "doctor",
            .help = "Say what is wrong between here and a working guest, in the order to mend it",
            .example = "tervainctl doctor",
            .place = Place::alone},
    Command{.name = "events",
            .help = "Collect the guest's shell events",
            .example = "tervainctl events --delete",
            .op = "shell-events",
            .options = events},
    Command{.name = "session",
            .help = "Perform commands from standard input, one a line, on one connection",
            .details = "Commands are written as behind tervainctl, with quotes and backslashes as "
                       "in a shell. Blank lines, and what stands behind a # at the start of a "
                       "word, are skipped. Refs of elements live until the next tree. A command "
                       "that fails does not end the session; its exit status is 1 then, and 0 "
                       "otherwise.",
            .example = "echo 'tree --depth 4' | tervainctl session",
            .place = Place::alone,
            .limit = noLimit},
    Command{.name = "conform",
            .help = "Check that an agent does all that it should",
            .details = "Drives the agent through everything that its protocol promises and prints "
                       "a row for each check. The exit status is 0 when nothing failed. Where a "
                       "grant is missing, the checks are that the agent says so. The pointer "
                       "moves, an editor is opened, typed into and ended, and another application "
                       "comes in front of it for a moment: leave the guest's keyboard and mouse "
                       "alone meanwhile.",
            .options = conform,
            .place = Place::alone,
            .limit = noLimit,
            .timesItself = true},
    Command{.name = "raw",
            .help = "Send request lines from standard input, print the replies",
            .example = "echo '{\"op\":\"ping\"}' | tervainctl raw",
            .place = Place::alone,
            .limit = noLimit},
    Command{.name = "mcp",
            .help = "Serve an AI host: the Model Context Protocol on standard input and output",
            .details = "It ends when standard input does. The guest need not be there yet, and may "
                       "come and go.",
            .place = Place::alone,
            .limit = noLimit,
            .timesItself = true},
    Command{.name = "mcp-config",
            .help = "Print what an AI host wants in its settings to start mcp",
            .details = "Where that belongs goes to standard error.",
            .example = "tervainctl mcp-config generic",
            .options = mcpConfig,
            .place = Place::alone},
};

}  // namespace

std::span<const Command> commands() {
  return table;
}

const Command* findCommand(std::string_view name) {
  const auto* const found = std::find_if(
      table.begin(), table.end(), [name](const Command& command) { return command.name == name; });
  return found == table.end() ? nullptr : found;
}

std::span<const Option> commonOptions() {
  return common;
}

const Option& timeoutOption() {
  return timeout;
}

const Option& versionOption() {
  return version;
}

const Option* wordsOf(const Command& command) {
  const bool has = !command.options.empty() && command.options.back().kind == Kind::words;
  return has ? &command.options.back() : nullptr;
}

std::size_t valueCount(const Option& option) {
  switch (option.kind) {
    case Kind::flag:
      return 0;
    case Kind::integers:
      return option.separator == 0 ? option.parts.size() : 1;
    default:
      return 1;
  }
}

}  // namespace tervain::ctl
