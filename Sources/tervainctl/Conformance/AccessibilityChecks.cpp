// Trees, refs and the hit test. No element is acted on here.

#include <array>

#include "tervainctl/Conformance/Grants.h"
#include "tervainctl/Conformance/Guest.h"
#include "tervainctl/Conformance/Replies.h"
#include "tervainctl/Conformance/Tree.h"

namespace tervain::ctl::conform {
namespace {

/// No process of any guest: more than its process numbers go.
constexpr std::int64_t noProcess = 99'999'999;

constexpr const char* noValue = "ax_set_value requires a string \"value\"";

Json staleRef(std::string_view ref) {
  return failure("element ref \"" + std::string(ref) +
                 "\" is unknown or stale — refs are only valid until the next ax_dump; re-dump and "
                 "retry");
}

/// Whether a ref names an element, asked in a way that does nothing to it.
Json touch(AgentConnection& host, const Json& ref) {
  return host.request({{"op", "ax_set_value"}, {"ref", ref}}, soon());
}

Json dump(AgentConnection& host, Json fields) {
  fields["op"] = "ax_dump";
  return host.request(fields, soon());
}

void refusesPoints(const Guest& guest, Findings& findings) {
  constexpr std::array refusals{
      Refusal{R"({"op":"ax_element_at"})", "ax_element_at requires x and y"},
      Refusal{R"({"op":"ax_element_at","x":10.5,"y":20})", "ax_element_at requires x and y"},
      Refusal{R"({"op":"ax_element_at","x":1,"y":"2"})", "ax_element_at requires x and y"},
  };
  expectRefusals(guest, findings, Grant::accessibility, refusals);
}

void refusesRefs(const Guest& guest, Findings& findings) {
  const struct {
    const char* member;
    const char* shown;
  } refs[]{{"", "?"},
           {R"(,"ref":5)", "?"},
           {R"(,"ref":"")", ""},
           {R"(,"ref":"e1")", "e1"},
           {R"(,"ref":"E1")", "E1"},
           {R"(,"ref":"ä \"b\"")", "ä \"b\""}};
  for (const std::string op : {"ax_action", "ax_set_value", "ax_focus"}) {
    for (const auto& [member, shown] : refs) {
      const std::string request = R"({"op":")" + op + "\"" + member + "}";
      const std::string error = staleRef(shown)["error"];
      const Refusal refusal{request.c_str(), error};
      expectRefusals(guest, findings, Grant::accessibility, {&refusal, 1});
    }
  }
}

void dumpsWhatIsNotThere(const Guest& guest, Findings& findings) {
  if (!needs(guest, findings, Grant::accessibility)) {
    return;
  }
  const Json reply = guest.ask({{"op", "ax_dump"}, {"pid", noProcess}});
  findings.expectEqual(
      "a process that does not exist", reply,
      {{"ok", true}, {"app", "pid " + std::to_string(noProcess)}, {"tree", {{"ref", "e1"}}}});
}

void keepsRefsApart(const Guest& guest, Findings& findings) {
  if (!needs(guest, findings, Grant::accessibility)) {
    return;
  }
  AgentConnection one = guest.connect();
  AgentConnection other = guest.connect();
  const Json target{{"pid", noProcess}};
  findings.expectEqual("the first dump", dump(one, target)["tree"], {{"ref", "e1"}});
  findings.expectEqual("its ref", touch(one, "e1"), failure(noValue));
  findings.expectEqual("its ref on another connection", touch(other, "e1"), staleRef("e1"));
  findings.expectEqual("the next dump", dump(one, target)["tree"], {{"ref", "e2"}});
  findings.expectEqual("the ref of the first dump", touch(one, "e1"), staleRef("e1"));
  findings.expectEqual("the ref of the next", touch(one, "e2"), failure(noValue));
  findings.expectEqual("the other connection's first dump", dump(other, target)["tree"],
                       {{"ref", "e1"}});
}

bool isHitOrReason(const Json& reply, std::int64_t x, std::int64_t y, std::int64_t ref) {
  if (truthy(reply, "ok")) {
    return hasMembers(reply, {"ok", "node"}) && nodeFault(reply["node"]).empty() &&
           refNumber(reply["node"]) == ref && !reply["node"].contains("children") &&
           !reply["node"].contains("childrenOmitted");
  }
  const std::string* error = stringMember(reply, "error");
  const std::string opening =
      "no accessible element at (" + std::to_string(x) + ", " + std::to_string(y) + ") (";
  return error && error->starts_with(opening) && error->ends_with(")") &&
         isReason(
             std::string_view(*error).substr(opening.size(), error->size() - opening.size() - 1));
}

void hits(const Guest& guest, Findings& findings) {
  if (!needs(guest, findings, Grant::accessibility)) {
    return;
  }
  AgentConnection host = guest.connect();
  dump(host, {{"pid", noProcess}});  // mints e1
  std::int64_t ref = 2;
  for (const auto& [x, y] : {std::pair{200, 150}, {10, 5}, {0, 0}, {-30'000, -30'000}}) {
    const Json reply = host.request({{"op", "ax_element_at"}, {"x", x}, {"y", y}}, soon());
    findings.expect(isHitOrReason(reply, x, y, ref), "no element and no reason: " + shown(reply));
    ref += truthy(reply, "ok") ? 1 : 0;
  }
  findings.note(std::to_string(ref - 2) + " of 4 points have an element");
  for (std::int64_t i = 1; i < ref; ++i) {
    const std::string name = "e" + std::to_string(i);
    findings.expectEqual(name + " after the hits", touch(host, name), failure(noValue));
  }
  findings.expectEqual("the next dump", dump(host, {{"pid", noProcess}})["tree"],
                       {{"ref", "e" + std::to_string(ref)}});
  findings.expectEqual("the dump's ref", touch(host, "e1"), staleRef("e1"));
}

}  // namespace

void checkFrontmostTree(const Guest& guest, Findings& findings) {
  if (!needs(guest, findings, Grant::accessibility)) {
    return;
  }
  AgentConnection host = guest.connect();
  std::int64_t firstRef = 1;
  const struct {
    Json maxDepth;
    int limit;
  } cases[]{{nullptr, 12}, {"3", 12}, {2.5, 12}, {1, 1}, {0, 1}, {-7, 1}, {3, 3}, {100, 25}};
  for (const auto& [maxDepth, limit] : cases) {
    const Json reply = dump(host, {{"maxDepth", maxDepth}});
    if (reply == failure("no frontmost application to dump")) {
      findings.skip("no application is in front");
      return;
    }
    const std::string fault = dumpFault(reply, firstRef, limit);
    if (!findings.expect(fault.empty(), "\"maxDepth\" " + shown(maxDepth) + ": " + fault)) {
      return;
    }
    findings.note(reply["app"].get<std::string>());
    firstRef += countNodes(reply["tree"]);
  }
}

std::vector<Check> accessibilityChecks() {
  constexpr const char* area = "accessibility";
  return {
      {area, "points that are none are refused", refusesPoints},
      {area, "refs that are unknown are refused as stale", refusesRefs},
      {area, "a process that does not exist has a bare root", dumpsWhatIsNotThere},
      {area, "refs count on, until the connection's next dump", keepsRefsApart},
      {area, "the frontmost application's tree is well formed", checkFrontmostTree},
      {area, "the hit test adds a ref, or tells why it has none", hits},
  };
}

}  // namespace tervain::ctl::conform
