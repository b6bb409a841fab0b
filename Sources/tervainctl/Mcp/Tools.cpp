#include "tervainctl/Mcp/Tools.h"

#include <algorithm>
#include <map>

#include "VMAgentClient/Outline.h"
#include "VMAgentClient/ProtocolError.h"
#include "VMAgentClient/Refusal.h"
#include "VMAgentCore/IO.h"
#include "tervainctl/CommandTable/Arguments.h"
#include "tervainctl/Mcp/ExecTool.h"
#include "tervainctl/Mcp/Pictures.h"
#include "tervainctl/Mcp/Results.h"
#include "tervainctl/Mcp/Schemas.h"
#include "tervainctl/Mcp/Texts.h"

namespace tervain::mcp {
namespace {

/// How long a request may take. The agent itself gives up after 15 s what the guest does not do.
constexpr std::chrono::seconds patience{25};

/// How long the agent takes for a unit of text: 16 of them every 12 ms, and some more under load.
constexpr std::chrono::milliseconds typingTime{2};

constexpr double usualWait = 30;  // seconds
constexpr int usualDepth = 12;

constexpr const char* fewer = "for those, take one with a smaller depth or of one pid, or use find";

std::optional<std::string> text(const Json& arguments, std::string_view key) {
  const std::string* found = stringMember(arguments, key);
  return found ? std::optional(*found) : std::nullopt;
}

Selector selectorOf(const ctl::Command& tool, const Json& arguments) {
  // What is no part of the words may have the same name: the new value of set_value.
  const auto word = [&](std::string_view key) {
    const auto isWord = [key](const ctl::Option& option) {
      return option.key == key && option.aim == ctl::Aim::words;
    };
    const bool is = std::any_of(tool.options.begin(), tool.options.end(), isWord);
    return is ? text(arguments, key) : std::nullopt;
  };
  return {.role = word("role"),
          .title = word("title"),
          .value = word("value"),
          .exact = truthy(arguments, "exact")};
}

Scope scopeOf(const Json& arguments, int depth) {
  Scope scope;
  scope.depth = static_cast<int>(integerMember(arguments, "depth").value_or(depth));
  if (const auto pid = integerMember(arguments, "pid")) {
    scope.pid = static_cast<std::int32_t>(*pid);
  }
  return scope;
}

Deadline afterSeconds(double seconds) {
  return after(std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds)));
}

/// Whether a connection that nothing is asked on any more has been closed meanwhile.
bool hasEnded(AgentConnection& connection) {
  pollfd entry = connection.pollEntry();
  if (waitForEvents({&entry, 1}, Clock::now())) {
    connection.advance(entry.revents);
  }
  return connection.ended();
}

/// The agent calls an element by a ref that was never shown.
std::string withOurRef(std::string text, const std::string& agents, const std::string& ours) {
  const std::string quoted = "\"" + agents + "\"";
  const std::size_t at = text.find(quoted);
  return at == text.npos ? text : text.replace(at, quoted.size(), "\"" + ours + "\"");
}

}  // namespace

Json Tools::call(const ctl::Command& tool, const Json& arguments, Interruption& interruption) {
  try {
    checkArguments(tool, arguments);
    return (this->*methodOf(tool.name))({tool, arguments, interruption});
  } catch (const std::exception& failure) {
    return failureResult(advise(failure));
  }
}

Tools::Method Tools::methodOf(std::string_view tool) {
  static const std::map<std::string_view, Method> methods{
      {"status", &Tools::status},  {"snapshot", &Tools::snapshot},
      {"find", &Tools::find},      {"wait", &Tools::wait},
      {"press", &Tools::press},    {"set_value", &Tools::setValue},
      {"focus", &Tools::focus},    {"click", &Tools::click},
      {"move", &Tools::move},      {"drag", &Tools::drag},
      {"scroll", &Tools::request}, {"type", &Tools::type},
      {"key", &Tools::request},    {"screenshot", &Tools::screenshot},
      {"launch", &Tools::request}, {"exec", &Tools::exec},
  };
  return methods.at(tool);
}

AgentConnection Tools::connect(const Call& call) const {
  AgentConnection connection(connect_());
  call.interruption.watch(connection);
  return connection;
}

Json Tools::status(const Call& call) {
  auto connection = connect(call);
  Json reply = successOf(connection, requestOf(call.tool, call.arguments), after(patience));
  reply.erase("ok");
  Json result = textResult("The agent answers: " + reply.dump());
  result["structuredContent"] = std::move(reply);
  return result;
}

Json Tools::snapshot(const Call& call) {
  auto connection = connect(call);
  ElementTree tree = dump(connection, scopeOf(call.arguments, usualDepth), after(patience));
  const std::string limits = limitsOf(tree);
  snapshots_.keep(std::move(connection), tree);
  space_.fromScreen(tree.root);
  std::string text = outline(shortened(std::move(tree.root)));
  text += limits.empty() ? "" : "[there may be more: the agent shows " + limits + "]\n";
  return textResult(cutLines(std::move(text), mostText, fewer));
}

/// Shows elements, a line each.
Json Tools::found(AgentConnection connection, std::vector<Match> matches,
                  const std::string& remark) {
  snapshots_.keep(std::move(connection), matches);
  std::string text;
  for (Match& match : matches) {
    space_.fromScreen(match.element);
    text.append(outlineOf(shortened(std::move(match.element)))).append("\n");
  }
  text += remark.empty() ? "" : "[" + remark + "]\n";
  return textResult(cutLines(std::move(text), mostText, "say more of what is meant"));
}

Json Tools::find(const Call& call) {
  auto connection = connect(call);
  const Selector selector = selectorOf(call.tool, call.arguments);
  const auto tree = dump(connection, scopeOf(call.arguments, Scope::deepest), after(patience));
  auto matches = matchesIn(tree, selector);
  if (matches.empty()) {
    return failureResult(noneFits(tree, selector) +
                         ". Use other words, or take a snapshot to see what there is.");
  }
  const std::string limits = limitsOf(tree);
  return found(std::move(connection), std::move(matches),
               limits.empty() ? "" : "there may be more: the agent shows " + limits);
}

Json Tools::wait(const Call& call) {
  auto connection = connect(call);
  const bool gone = truthy(call.arguments, "gone");
  Awaited awaited = waitForElement(
      connection, scopeOf(call.arguments, Scope::deepest), selectorOf(call.tool, call.arguments),
      gone ? Until::gone : Until::there, afterSeconds(call.arguments.value("timeout", usualWait)));
  if (!awaited.happened) {
    return failureResult("Not in time: " + awaited.remark +
                         ". Take a snapshot or a screenshot to see what there is instead.");
  }
  if (gone) {
    return textResult("It is gone. " + awaited.remark);
  }
  return found(std::move(connection), std::move(awaited.matches), awaited.remark);
}

Json Tools::act(const Call& call, const Deed& deed) {
  const auto deadline = after(patience);
  const auto ref = text(call.arguments, "ref");
  if (!ref) {
    auto connection = connect(call);
    const Match match = chooseElement(connection, scopeOf(call.arguments, Scope::deepest),
                                      selectorOf(call.tool, call.arguments), deadline);
    return textResult(deed(connection, match));
  }
  const Seen seen = snapshots_.find(*ref);
  const Turn turn(*seen.look, deadline);
  if (!turn) {
    throw ProtocolError("the application has not answered an earlier call yet");
  }
  if (hasEnded(seen.look->connection)) {
    throw BadRef("the connection that this ref was given on has ended; take a new snapshot");
  }
  try {
    return textResult(deed(seen.look->connection, seen.match));
  } catch (const Refusal& refusal) {
    throw Refusal(withOurRef(refusal.what(), seen.match.element.ref, *ref));
  }
}

Json Tools::press(const Call& call) {
  return act(call, [&](AgentConnection& connection, const Match& match) {
    const auto note = tervain::press(connection, match.element.ref, text(call.arguments, "action"),
                                     after(patience));
    return "Done." + (note ? " " + *note : "");
  });
}

Json Tools::setValue(const Call& call) {
  return act(call, [&](AgentConnection& connection, const Match& match) {
    tervain::setValue(connection, match.element.ref, *text(call.arguments, "value"),
                      after(patience));
    return std::string("Done.");
  });
}

Json Tools::focus(const Call& call) {
  return act(call, [](AgentConnection& connection, const Match& match) {
    tervain::focus(connection, match.element.ref, after(patience));
    return std::string("Done.");
  });
}

Json Tools::click(const Call& call) {
  const auto clickAt = [&](AgentConnection& connection, ScreenPoint place) {
    Json request = requestOf(call.tool, call.arguments);
    request["x"] = place.x;
    request["y"] = place.y;
    successOf(connection, request, after(patience));
  };
  if (isAimed(call.tool, call.arguments, ctl::Aim::point)) {
    auto connection = connect(call);
    clickAt(connection, space_.toScreen(call.arguments.at("x"), call.arguments.at("y")));
    return textResult("Done.");
  }
  return act(call, [&](AgentConnection& connection, const Match& match) {
    clickAt(connection, placeToClick(connection, match, after(patience)));
    return std::string("Done.");
  });
}

Json Tools::request(const Call& call) {
  auto connection = connect(call);
  successOf(connection, requestOf(call.tool, call.arguments), after(patience));
  return textResult("Done.");
}

Json Tools::type(const Call& call) {
  auto connection = connect(call);
  const auto units = text(call.arguments, "text").value_or("").size();
  const auto limit = patience + typingTime * static_cast<std::int64_t>(units);
  successOf(connection, requestOf(call.tool, call.arguments), after(limit));
  return textResult("Done.");
}

Json Tools::move(const Call& call) {
  auto connection = connect(call);
  const auto place = space_.toScreen(call.arguments.at("x"), call.arguments.at("y"));
  successOf(connection, Json{{"op", call.tool.op}, {"x", place.x}, {"y", place.y}},
            after(patience));
  return textResult("Done.");
}

Json Tools::drag(const Call& call) {
  auto connection = connect(call);
  const auto to = space_.toScreen(call.arguments.at("toX"), call.arguments.at("toY"));
  Json request{{"op", call.tool.op}, {"toX", to.x}, {"toY", to.y}};
  if (call.arguments.contains("from")) {
    const Json& start = call.arguments.at("from");
    const auto from = space_.toScreen(start.at("x"), start.at("y"));
    request["fromX"] = from.x;
    request["fromY"] = from.y;
  }
  successOf(connection, request, after(patience));
  return textResult("Done.");
}

Json Tools::screenshot(const Call& call) {
  auto connection = connect(call);
  return takePicture(connection, call.arguments, space_, after(patience));
}

Json Tools::exec(const Call& call) {
  return runCommand(connect(call), call.arguments, call.interruption);
}

}  // namespace tervain::mcp
