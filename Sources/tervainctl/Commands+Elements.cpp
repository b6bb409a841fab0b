// Commands on elements that are told by their words, or by a ref.

#include <chrono>

#include "VMAgentClient/Elements.h"
#include "VMAgentClient/Outline.h"
#include "VMAgentClient/Refusal.h"
#include "tervainctl/Commands.h"

namespace tervain::ctl {
namespace {

Selector selectorOf(const Call& call) {
  return {.role = textArgument(call, "role"),
          .title = textArgument(call, "title"),
          .value = textArgument(call, "value"),
          .exact = given(call, "exact")};
}

Deadline deadlineOf(const Call& call) {
  // Beyond what the clock counts, time does not end.
  constexpr double longest = 1e9;
  const double seconds = limitOf(call.command, call.arguments);
  return seconds > longest ? Deadline::max()
                           : after(std::chrono::duration_cast<Clock::duration>(
                                 std::chrono::duration<double>(seconds)));
}

void show(const std::vector<Match>& matches) {
  std::string text;
  for (const Match& match : matches) {
    text.append(outlineOf(match.element)).append("\n");
  }
  print(text);
}

/// The ref of a session, or that of the one element that fits.
std::string refOf(AgentConnection& connection, const Call& call) {
  const auto ref = textArgument(call, "ref");
  return ref ? *ref : chooseElement(connection, scopeOf(call), selectorOf(call)).element.ref;
}

}  // namespace

Scope scopeOf(const Call& call) {
  Scope scope;
  scope.depth = static_cast<int>(integerMember(call.arguments, "depth").value_or(scope.depth));
  if (const auto pid = integerMember(call.arguments, "pid")) {
    scope.pid = static_cast<std::int32_t>(*pid);
  }
  return scope;
}

int findElements(AgentConnection& connection, const Call& call) {
  const Selector selector = selectorOf(call);
  const ElementTree tree = dump(connection, scopeOf(call), Deadline::max());
  const auto matches = matchesIn(tree, selector);
  if (matches.empty()) {
    complain(noneFits(tree, selector));
    return failed;
  }
  show(matches);
  if (const std::string limits = limitsOf(tree); !limits.empty()) {
    remark("there may be more: the agent shows " + limits);
  }
  return 0;
}

int waitForElements(AgentConnection& connection, const Call& call) {
  const Until until = given(call, "gone") ? Until::gone : Until::there;
  const Awaited awaited =
      waitForElement(connection, scopeOf(call), selectorOf(call), until, deadlineOf(call));
  if (!awaited.happened) {
    complain("not in time: " + awaited.remark);
    return timedOut;
  }
  if (!awaited.remark.empty()) {
    remark(awaited.remark);
  }
  show(awaited.matches);
  return 0;
}

int pressElement(AgentConnection& connection, const Call& call) {
  const std::string ref = refOf(connection, call);
  if (const auto note = press(connection, ref, textArgument(call, "action"))) {
    remark(*note);
  }
  return 0;
}

int setElement(AgentConnection& connection, const Call& call) {
  const std::string ref = refOf(connection, call);
  setValue(connection, ref, textArgument(call, "newValue").value_or(""));
  return 0;
}

int focusElement(AgentConnection& connection, const Call& call) {
  focus(connection, refOf(connection, call));
  return 0;
}

int click(AgentConnection& connection, const Call& call) {
  Json request = requestOf(call.command, call.arguments);
  if (isAimed(call.command, call.arguments, Aim::words)) {
    const Match match = chooseElement(connection, scopeOf(call), selectorOf(call));
    const ScreenPoint place = placeToClick(connection, match);
    request["x"] = place.x;
    request["y"] = place.y;
  }
  return tell(connection, request);
}

}  // namespace tervain::ctl
