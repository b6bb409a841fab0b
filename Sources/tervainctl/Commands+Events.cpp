#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstdint>
#include <memory>

#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/AgentWire.h"
#include "VMAgentCore/Base64.h"
#include "tervainctl/Commands.h"

namespace tervain::ctl {
namespace {

namespace wire = AgentWire::ShellEvents;

struct EventOptions {
  bool remove = false;
  std::optional<std::string> dir;
  std::optional<std::int64_t> maxBytes;
};

Json request(const EventOptions& options) {
  Json object{{"op", wire::op}, {wire::truncateKey, options.remove}};
  if (options.dir) {
    object[std::string(wire::dirKey)] = *options.dir;
  }
  if (options.maxBytes) {
    object[std::string(wire::maxBytesKey)] = *options.maxBytes;
  }
  return object;
}

int collect(AgentConnection& connection, const EventOptions& options) {
  const auto reply = ask(connection, request(options));
  if (!reply) {
    return failed;
  }
  const std::string* text = stringMember(*reply, wire::eventsKey);
  const auto events = text ? decodeBase64(*text) : std::nullopt;
  if (!events) {
    throw AgentError::posix("decoding the events", EBADMSG);
  }
  print(*events);
  if (truthy(*reply, wire::truncatedKey)) {
    complain("not all events fitted; raise --max-bytes, or collect again after --delete");
  }
  return 0;
}

}  // namespace

Action declareEvents(CLI::App& options) {
  const auto values = std::make_shared<EventOptions>();
  options.add_flag("--delete", values->remove,
                   "Have the guest delete the event files once it has sent them");
  options.add_option("--dir", values->dir, "The guest's directory to collect from");
  options.add_option("--max-bytes", values->maxBytes, "How many bytes of events to take at most")
      ->check(CLI::NonNegativeNumber);
  return
      [values](AgentConnection& connection, const Call&) { return collect(connection, *values); };
}

}  // namespace tervain::ctl
