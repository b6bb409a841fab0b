#include "tervainctl/CommandTable/ToolTable.h"

#include <algorithm>
#include <array>

namespace tervain::ctl {
namespace {

using namespace std::literals;

constexpr Hints looking{.readOnly = true, .idempotent = true};
/// What presses buttons and types may send a mail or empty a folder.
constexpr Hints acting{.destructive = true, .openWorld = true};

/// Far beyond any screen, and well within what the protocol takes.
constexpr Range screen{-1e6, 1e6};
constexpr Range seconds{0, 86'400};

constexpr Option ref{.key = "ref",
                     .help =
                         "The element, by its ref in one of the last eight snapshots, or in "
                         "what find or wait have shown"};
constexpr Option aimingRef{.key = ref.key, .help = ref.help, .aim = Aim::ref};
constexpr Option x{.key = "x",
                   .kind = Kind::number,
                   .help =
                       "From the left, in pixels of the last screenshot; in points of the main "
                       "display if there was none",
                   .required = true,
                   .range = screen};
constexpr Option y{.key = "y",
                   .kind = Kind::number,
                   .help = "From the top, likewise",
                   .required = true,
                   .range = screen};

constexpr Option aiming(Option option) {
  option.required = false;
  option.aim = Aim::point;
  return option;
}

constexpr Option named(Option option, std::string_view key) {
  option.key = key;
  return option;
}

constexpr std::array rectangle{Part{"x"}, Part{"y"}, Part{"width"}, Part{"height"}};
constexpr auto point = std::span(rectangle).first<2>();

constexpr std::array json{"json"sv};

constexpr std::array wait{Option{.key = "timeout",
                                 .kind = Kind::number,
                                 .help = "How many seconds to wait (default: 30)",
                                 .range = seconds}};

constexpr std::array refOrWords{aimingRef};

constexpr std::array withoutNewValue{"newValue"sv};
constexpr std::array setValue{
    aimingRef,
    Option{.key = "value", .help = "The new value, which may be empty", .required = true}};

constexpr std::array click{aimingRef, aiming(x), aiming(y)};
constexpr std::array move{x, y};
constexpr std::array drag{
    Option{.key = "from",
           .kind = Kind::integers,
           .help = "The point to start at, likewise (default: where the pointer is)",
           .parts = point},
    named(x, "toX"), named(y, "toY")};
constexpr std::array type{
    Option{.key = "text", .help = "The text", .required = true, .member = "text"}};

constexpr std::array withoutFile{"output"sv, "points"sv, "quality"sv};
constexpr std::array screenshot{
    Option{.key = "display",
           .kind = Kind::integer,
           .help = "Which display, counted from 0 (default: 0, the main one)",
           .range = {0, 63}},
    Option{.key = "region",
           .kind = Kind::integers,
           .help = "Only this part, in pixels of the last screenshot; in points if there was none. "
                   "Of another display than the main one: in its points",
           .parts = rectangle},
    Option{.key = "max",
           .kind = Kind::integer,
           .help = "At most so many pixels wide and high (default: 1280)",
           .range = {16, 65535}}};

constexpr std::array withoutInput{"noInput"sv};
constexpr std::array exec{
    Option{.key = "command", .help = "A command line for the guest's shell", .required = true},
    Option{.key = "stdin", .help = "What the command reads; without it, nothing"},
    Option{.key = "timeout",
           .kind = Kind::number,
           .help = "After how many seconds to kill it (default: 50)",
           .range = seconds}};

constexpr std::string_view howToAim =
    "The element is told by ref, or by words that fit it alone: role, title, value, exact.";

constexpr std::array table{
    Tool{.name = "status", .command = "ping", .hints = looking, .without = json},
    Tool{.name = "snapshot",
         .command = "tree",
         .help = "Show an application's elements as an outline, a line an element, with refs",
         .details = "A line is: ref, role and subrole, \"title\", =\"value\", position and size, "
                    "states, [actions].",
         .hints = looking,
         .without = json},
    Tool{.name = "find",
         .command = "find",
         .details = "Cheaper than a snapshot. Their refs can be used like a snapshot's.",
         .hints = looking},
    Tool{.name = "wait",
         .command = "wait",
         .details = "It fails if that has not happened in time.",
         .hints = looking,
         .options = wait},
    Tool{.name = "press",
         .command = "press",
         .help = "Press a button, menu item or the like, or perform another action of an element",
         .details = howToAim,
         .hints = acting,
         .options = refOrWords},
    Tool{.name = "set_value",
         .command = "set",
         .details =
             "The element is told by ref, or by words that fit it alone: role, title, exact. "
             "Where the application refuses, focus the element and type.",
         .hints = {.destructive = true, .idempotent = true},
         .without = withoutNewValue,
         .options = setValue},
    Tool{.name = "focus",
         .command = "focus",
         .details = howToAim,
         .hints = {.idempotent = true},
         .options = refOrWords},
    Tool{.name = "click",
         .command = "click",
         .help = "Click at a point of the last screenshot, or on an element",
         .details = "An element, told by ref or by words, is clicked in the middle of what can be "
                    "seen of it. Prefer press where it has that action.",
         .hints = acting,
         .options = click},
    Tool{.name = "move", .command = "move", .hints = {.idempotent = true}, .options = move},
    Tool{.name = "drag", .command = "drag", .hints = acting, .options = drag},
    Tool{.name = "scroll", .command = "scroll"},
    Tool{.name = "type",
         .command = "type",
         .help = "Type a text into what has the keyboard focus, line feeds and all",
         .hints = acting,
         .options = type},
    Tool{.name = "key", .command = "key", .hints = acting},
    Tool{.name = "screenshot",
         .command = "screenshot",
         .help = "Take a picture of a display, or of a part of it",
         .details = "From then on, click, move, drag and region count in pixels of this picture, "
                    "and outlines give positions in them, too. Only pictures of the main display "
                    "do that: where another one lies beside it is not known.",
         .hints = looking,
         .without = withoutFile,
         .options = screenshot},
    Tool{.name = "launch",
         .command = "launch",
         .details = "Its window may take a moment: wait for it.",
         .hints = {.idempotent = true}},
    Tool{.name = "exec",
         .command = "exec",
         .help = "Run a command in the guest",
         .details = "Of output beyond 60 KB the beginning and the end are kept.",
         .hints = acting,
         .without = withoutInput,
         .options = exec},
};

}  // namespace

std::span<const Tool> tools() {
  return table;
}

const Tool* findTool(std::string_view name) {
  const auto* const found = std::find_if(table.begin(), table.end(),
                                         [name](const Tool& tool) { return tool.name == name; });
  return found == table.end() ? nullptr : found;
}

ToolCommand commandOf(const Tool& tool) {
  ToolCommand made{*findCommand(tool.command), {}};
  const auto isKey = [](const Option& option) {
    return [&option](const Option& other) { return other.key == option.key; };
  };
  const auto add = [&made](Option option) {
    option.spelling = {};
    option.placeholder = option.key;
    made.options.push_back(option);
  };
  for (const Option& option : made.command.options) {
    const auto& without = tool.without;
    const auto own = std::find_if(tool.options.begin(), tool.options.end(), isKey(option));
    if (own != tool.options.end()) {
      add(*own);
    } else if (std::find(without.begin(), without.end(), option.key) == without.end()) {
      add(option);
    }
  }
  for (const Option& option : tool.options) {
    if (std::none_of(made.options.begin(), made.options.end(), isKey(option))) {
      add(option);
    }
  }
  made.command.name = tool.name;
  made.command.help = tool.help.empty() ? made.command.help : tool.help;
  made.command.details = tool.details;
  made.command.options = made.options;
  return made;
}

}  // namespace tervain::ctl
