// Lines, replies and connections, whatever the operations.

#include <algorithm>
#include <array>

#include "VMAgentCore/AgentWire.h"
#include "tervainctl/Conformance/Check.h"
#include "tervainctl/Conformance/Guest.h"
#include "tervainctl/Conformance/Replies.h"

namespace tervain::ctl::conform {
namespace {

constexpr std::string_view ping = R"({"op":"ping"})";
constexpr std::string_view malformed =
    "malformed request (want one JSON object per line with an \"op\")";

/// The next reply; null when none comes.
Json nextReply(AgentConnection& host) {
  const auto line = host.waitForLine(soon());
  return line ? parseObject(*line).value_or(Json()) : Json();
}

Json unknownOp(std::string_view op) {
  return failure("unknown op '" + std::string(op) + "' (agent protocol v" +
                 std::to_string(AgentWire::version) + ")");
}

bool expectPong(Findings& findings, AgentConnection& host, std::string_view what) {
  const Json reply = nextReply(host);
  return findings.expect(reply.is_object() && truthy(reply, "ok") && reply.contains("version"),
                         std::string(what) + ": expected a reply to ping, got " + shown(reply));
}

/// Whether the agent closes the connection without another line.
bool expectEnd(Findings& findings, AgentConnection& host, std::string_view what) {
  const auto line = host.waitForLine(soon());
  return findings.expect(!line, std::string(what) + ": got " + std::string(line.value_or(""))) &&
         findings.expect(host.ended(), std::string(what) + ": the connection is not closed");
}

void refusesWhatIsNoRequest(const Guest& guest, Findings& findings) {
  AgentConnection host = guest.connect();
  const std::string deep = R"({"op":"ping","x":)" + std::string(600, '[') + std::string(600, ']');
  for (const std::string& line :
       {std::string("{"), std::string("ping"), std::string(R"("ping")"), std::string("[1,2]"),
        std::string("5"), std::string("null"), std::string("{}"), std::string(R"({"op":5})"),
        std::string(R"({"OP":"ping"})"), std::string(R"({"op":"ping"} {"op":"ping"})"),
        std::string(R"({"op":"ping",})"), std::string(" "), std::string("{\"op\":\"\xff\"}"),
        deep + "}"}) {
    host.sendLine(line);
    if (!findings.expectEqual(line.substr(0, 40), nextReply(host), failure(malformed))) {
      return;
    }
  }
  host.sendLine(ping);
  expectPong(findings, host, "ping on the same connection");
}

void namesUnknownOps(const Guest& guest, Findings& findings) {
  AgentConnection host = guest.connect();
  for (const char* op : {"foo", "PING", "", "a/b", "shell_events", "exec ", "grüße \"😀\""}) {
    if (!findings.expectEqual(op, host.request({{"op", op}}, soon()), unknownOp(op))) {
      return;
    }
  }
}

void cutsLines(const Guest& guest, Findings& findings) {
  AgentConnection host = guest.connect();
  host.sendBytes("\n\r\n{\"op\":\"one\"}\r\n\r\n\n{\"op\":\"ping\"}\r\r\n{\"op\":\"three\"}\n");
  findings.expectEqual("behind empty lines", nextReply(host), unknownOp("one"));
  expectPong(findings, host, "a line that ends in two carriage returns");
  findings.expectEqual("the line behind that", nextReply(host), unknownOp("three"));
}

void answersInOrder(const Guest& guest, Findings& findings) {
  AgentConnection host = guest.connect();
  std::string packet;
  constexpr int count = 100;
  for (int i = 0; i < count; ++i) {
    packet += R"({"op":"n)" + std::to_string(i) + "\"}\n";
  }
  host.sendBytes(packet);
  for (int i = 0; i < count; ++i) {
    const std::string op = "n" + std::to_string(i);
    if (!findings.expectEqual("reply " + std::to_string(i), nextReply(host), unknownOp(op))) {
      return;
    }
  }
}

void putsPiecesTogether(const Guest& guest, Findings& findings) {
  AgentConnection host = guest.connect();
  for (const char byte : ping) {
    host.sendBytes({&byte, 1});
    // By the time that another connection is served, the piece has arrived by itself.
    guest.ask({{"op", "ping"}});
  }
  host.sendBytes("\n");
  expectPong(findings, host, "a request sent byte by byte");
}

void writesCompactLines(const Guest& guest, Findings& findings) {
  AgentConnection host = guest.connect();
  for (const std::string_view request : {ping, std::string_view(R"({"op":"a/b"})")}) {
    host.sendLine(request);
    const std::string line(host.waitForLine(soon()).value_or(""));
    const auto compact = serialize(parseObject(line).value_or(Json()));
    // The order of members is free, so that only the length tells whether there is more in it.
    findings.expect(compact && compact->size() == line.size(), "not compact: " + line);
    findings.expect(line.find("a/b") == std::string::npos, "\"/\" is not written as \"\\/\"");
  }
}

void takesFourMebibytes(const Guest& guest, Findings& findings) {
  AgentConnection host = guest.connect();
  std::string line(ping);
  line.insert(line.size() - 1, AgentWire::maxPendingBytes - line.size(), ' ');
  host.sendLine(line);
  expectPong(findings, host, "a request of 4194304 bytes");
  host.sendLine(ping);
  expectPong(findings, host, "the request behind it");
}

void takesNoMore(const Guest& guest, Findings& findings) {
  AgentConnection host = guest.connect();
  host.sendBytes(std::string(AgentWire::maxPendingBytes + 1, 'x'));
  expectEnd(findings, host, "4194305 bytes without a line feed");
  findings.expect(truthy(guest.ask({{"op", "ping"}}), "ok"), "the agent serves no one afterwards");
}

void servesConnectionsAtOnce(const Guest& guest, Findings& findings) {
  AgentConnection waiting = guest.connect();
  waiting.sendBytes(ping);
  std::vector<AgentConnection> hosts;
  constexpr int count = 24;
  for (int i = 0; i < count; ++i) {
    hosts.push_back(guest.connect());
    hosts.back().sendLine(ping);
  }
  std::for_each(hosts.rbegin(), hosts.rend(), [&](AgentConnection& host) {
    expectPong(findings, host, "one of " + std::to_string(count) + " connections");
  });
  waiting.sendBytes("\n");
  expectPong(findings, waiting, "a request that took its time");
}

void endsWithTheHost(const Guest& guest, Findings& findings) {
  AgentConnection host = guest.connect();
  host.sendBytes(std::string(ping) + "\n" + std::string(ping));
  host.endSending();
  if (expectPong(findings, host, "the request before the end")) {
    expectEnd(findings, host, "a request without its line feed");
  }
}

}  // namespace

std::vector<Check> protocolChecks() {
  constexpr const char* area = "protocol";
  return {
      {area, "lines that are no request are told so", refusesWhatIsNoRequest},
      {area, "an unknown op is named as it was sent", namesUnknownOps},
      {area, "empty lines get no reply, lines may end in CR LF", cutsLines},
      {area, "requests in one packet are answered in order", answersInOrder},
      {area, "a request in pieces is answered when it is whole", putsPiecesTogether},
      {area, "replies are one compact line", writesCompactLines},
      {area, "a line of 4 MiB is answered", takesFourMebibytes},
      {area, "more than that without a line feed ends the connection", takesNoMore},
      {area, "connections are served at the same time", servesConnectionsAtOnce},
      {area, "a host that ends sending is answered what it sent whole", endsWithTheHost},
  };
}

}  // namespace tervain::ctl::conform
