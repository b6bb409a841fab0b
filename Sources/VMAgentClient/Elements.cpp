#include "VMAgentClient/Elements.h"

#include <algorithm>
#include <chrono>

#include "VMAgentClient/Outline.h"
#include "VMAgentClient/ProtocolError.h"
#include "VMAgentClient/Refusal.h"
#include "VMAgentCore/IO.h"

namespace tervain {
namespace {

/// The least pause between two looks. A look may cost the guest tens of milliseconds, and there is
/// never less pause than that: half of its time stays the application's.
constexpr std::chrono::milliseconds shortestPause{100};

constexpr std::string_view nothingInFront = "no frontmost application to dump";

/// A look at the guest: what fits, and otherwise why nothing does.
struct Look {
  std::vector<Match> matches;
  std::string nothing;
  std::string limits;
};

Look look(AgentConnection& connection, const Scope& scope, const Selector& selector,
          Deadline deadline) {
  try {
    const ElementTree tree = dump(connection, scope, deadline);
    Look seen{matchesIn(tree, selector), "", limitsOf(tree)};
    seen.nothing = seen.matches.empty() ? noneFits(tree, selector) : "";
    return seen;
  } catch (const Refusal& refusal) {
    if (refusal.what() != nothingInFront) {
      throw;
    }
    return {{}, "no application is in front", ""};
  }
}

/// The end of a connection ends a pause, too.
void pause(AgentConnection& connection, Deadline end) {
  pollfd entry = connection.pollEntry();
  if (waitForEvents({&entry, 1}, end)) {
    connection.advance(entry.revents);
  }
}

std::string remarkOn(const Look& seen, Until until, bool happened) {
  const std::size_t count = seen.matches.size();
  if (until == Until::there || (!happened && count == 0)) {
    return seen.nothing;
  }
  if (!happened) {
    return std::to_string(count) + (count == 1 ? " element still fits" : " elements still fit");
  }
  // What is not shown can't be seen to be gone.
  return seen.limits.empty() ? "" : "gone as far as can be seen: the agent shows " + seen.limits;
}

Awaited outcome(Look&& seen, Until until, bool happened) {
  std::string remark = remarkOn(seen, until, happened);
  return {happened, std::move(seen.matches), std::move(remark)};
}

std::string lookFirst(std::string_view failure) {
  return std::string(failure) +
         "; it was not tried again, as it may have had its effect: look first, in a new tree or a "
         "picture";
}

/// Whether the application was asked and failed, rather than that the agent did not ask it.
bool wasTried(const Refusal& refusal) {
  return std::string_view(refusal.what()).find(" failed (") != std::string_view::npos;
}

/// The main display, where it is the only one. Where others are, the protocol does not tell.
std::optional<Frame> onlyScreen(AgentConnection& connection, Deadline deadline) {
  const Json reply = successOf(connection, Json{{"op", "ping"}}, deadline);
  const auto displays = reply.find("displays");
  if (displays == reply.end() || !displays->is_array() || displays->size() != 1) {
    return std::nullopt;
  }
  const Json& display = displays->front();
  const auto width = display.is_object() ? integerMember(display, "width") : std::nullopt;
  const auto height = display.is_object() ? integerMember(display, "height") : std::nullopt;
  return width && height ? std::optional(Frame{0, 0, *width, *height}) : std::nullopt;
}

}  // namespace

ElementTree dump(AgentConnection& connection, const Scope& scope, Deadline deadline) {
  Json request{{"op", "ax_dump"}, {"maxDepth", scope.depth}};
  if (scope.pid) {
    request["pid"] = *scope.pid;
  }
  return treeOf(successOf(connection, request, deadline), scope.depth);
}

Match chooseElement(AgentConnection& connection, const Scope& scope, const Selector& selector,
                    Deadline deadline) {
  return choose(dump(connection, scope, deadline), selector);
}

Awaited waitForElement(AgentConnection& connection, const Scope& scope, const Selector& selector,
                       Until until, Deadline deadline) {
  Look last;
  last.nothing = "the agent has not shown any elements in time";
  do {
    const auto start = Clock::now();
    try {
      last = look(connection, scope, selector, deadline);
    } catch (const std::runtime_error&) {
      if (Clock::now() < deadline) {
        throw;
      }
      break;
    }
    if (last.matches.empty() == (until == Until::gone)) {
      return outcome(std::move(last), until, true);
    }
    const auto now = Clock::now();
    pause(connection,
          std::min(deadline, now + std::max<Clock::duration>(shortestPause, now - start)));
  } while (Clock::now() < deadline);
  return outcome(std::move(last), until, false);
}

std::optional<std::string> press(AgentConnection& connection, const std::string& ref,
                                 const std::optional<std::string>& action, Deadline deadline) {
  Json request{{"op", "ax_action"}, {"ref", ref}};
  if (action) {
    request["action"] = *action;
  }
  try {
    const Json reply = successOf(connection, request, deadline);
    const std::string* note = stringMember(reply, "note");
    return note ? std::optional(*note) : std::nullopt;
  } catch (const Refusal& refusal) {
    throw wasTried(refusal) ? Refusal(lookFirst(refusal.what())) : refusal;
  } catch (const ProtocolError& error) {
    throw ProtocolError(lookFirst(error.what()));
  }
}

void setValue(AgentConnection& connection, const std::string& ref, const std::string& value,
              Deadline deadline) {
  successOf(connection, Json{{"op", "ax_set_value"}, {"ref", ref}, {"value", value}}, deadline);
}

void focus(AgentConnection& connection, const std::string& ref, Deadline deadline) {
  successOf(connection, Json{{"op", "ax_focus"}, {"ref", ref}}, deadline);
}

ScreenPoint placeToClick(AgentConnection& connection, const Match& match, Deadline deadline) {
  const auto screen = onlyScreen(connection, deadline);
  const auto seen = match.visible && screen ? intersection(*match.visible, *screen) : match.visible;
  if (!seen) {
    throw NotChosen("nothing of this element can be seen, so there is no place to click on: " +
                    outlineOf(match.element));
  }
  return middleOf(*seen);
}

}  // namespace tervain
