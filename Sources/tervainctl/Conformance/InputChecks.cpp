// Pointer and keyboard, as far as it does no harm on any desktop.

#include <array>
#include <cmath>

#include "tervainctl/Conformance/Grants.h"
#include "tervainctl/Conformance/Guest.h"
#include "tervainctl/Conformance/Replies.h"

namespace tervain::ctl::conform {
namespace {

constexpr std::array refusals{
    Refusal{R"({"op":"click"})", "click requires x and y"},
    Refusal{R"({"op":"click","x":1,"y":"2"})", "click requires x and y"},
    Refusal{R"({"op":"move","y":2})", "move requires x and y"},
    Refusal{R"({"op":"move","x":[1],"y":null})", "move requires x and y"},
    Refusal{R"({"op":"drag","fromX":1,"fromY":2,"toX":3})", "drag requires toX and toY"},
    Refusal{R"({"op":"scroll"})", "scroll requires dx and/or dy"},
    Refusal{R"({"op":"scroll","dx":0,"dy":0.9})", "scroll requires dx and/or dy"},
    Refusal{R"({"op":"type"})", R"(type requires non-empty "text")"},
    Refusal{R"({"op":"type","text":""})", R"(type requires non-empty "text")"},
    Refusal{R"({"op":"type","text":5})", R"(type requires non-empty "text")"},
    Refusal{R"({"op":"key"})", R"(key requires a "chord" (e.g. "cmd+s"))"},
    Refusal{R"({"op":"key","chord":""})", R"(key requires a "chord" (e.g. "cmd+s"))"},
    Refusal{R"({"op":"key","chord":"+"})", R"(unrecognized key in chord "+")"},
    Refusal{R"({"op":"key","chord":"Cmd+"})", R"(unrecognized key in chord "Cmd+")"},
    Refusal{R"({"op":"key","chord":"cmd + s"})", R"(unrecognized key in chord "cmd + s")"},
    Refusal{R"({"op":"key","chord":"Cmd+Größe"})", R"(unrecognized key in chord "Cmd+Größe")"},
};

void refusesWhatIsIncomplete(const Guest& guest, Findings& findings) {
  expectRefusals(guest, findings, Grant::inputSynthesis, refusals);
}

Json position(AgentConnection& host) {
  return host.request({{"op", "cursor_position"}}, soon());
}

bool isAt(const Json& position, std::int64_t x, std::int64_t y) {
  constexpr std::int64_t tolerance = 1;  // a point is not always a pixel
  const auto nearTo = [&](const char* key, std::int64_t wanted) {
    const auto got = integerMember(position, key);
    return got && std::abs(*got - wanted) <= tolerance;
  };
  return nearTo("x", x) && nearTo("y", y);
}

void movesThePointer(const Guest& guest, Findings& findings) {
  if (!needs(guest, findings, Grant::inputSynthesis)) {
    return;
  }
  AgentConnection host = guest.connect();
  const Json before = position(host);
  const auto moves = [&](const Json& x, const Json& y) {
    const Json reply = host.request({{"op", "move"}, {"x", x}, {"y", y}}, soon());
    findings.expectEqual("move", reply, success);
    Json last;
    const bool arrived = eventually(
        [&] {
          last = position(host);
          return isAt(last, static_cast<std::int64_t>(x.get<double>()),
                      static_cast<std::int64_t>(y.get<double>()));
        },
        std::chrono::seconds(5));
    findings.expect(arrived, "sent to " + shown({x, y}) + ", the pointer is at " + shown(last));
  };
  // Well inside any screen, and away from corners that may do something.
  moves(200, 150);
  moves(311.9, 240.1);
  if (integerMember(before, "x") && integerMember(before, "y")) {
    moves(before["x"], before["y"]);
  }
}

}  // namespace

std::vector<Check> inputChecks() {
  return {
      {"input", "incomplete requests and unknown keys are refused", refusesWhatIsIncomplete},
      {"input", "the pointer goes where it is sent, and back again", movesThePointer},
  };
}

}  // namespace tervain::ctl::conform
