#include "tervainctl/Mcp/Server.h"

#include <memory>

#include "VMAgentCore/IO.h"
#include "VMAgentCore/LineSplitBuffer.h"
#include "tervainctl/Mcp/Results.h"
#include "tervainctl/Mcp/Schemas.h"

namespace tervain::mcp {
namespace {

/// The longest message. The agent takes no request beyond 4 MiB, whose JSON may be longer here.
constexpr std::size_t longestLine = 16 << 20;

/// How long calls may go on when the host has gone: it may have sent them all at once and waits for
/// the replies.
constexpr std::chrono::seconds afterwards{1};

}  // namespace

Server::Server(Connect connect, Output output, std::string version)
    : version_(std::move(version)), output_(std::move(output)), tools_(std::move(connect)) {}

Server::~Server() {
  const std::lock_guard lock(callsMutex_);
  for (const auto& [id, interruption] : calls_) {
    interruption->interrupt();
  }
}

void Server::receive(std::string_view line) {
  if (line.find_first_not_of(" \t") == line.npos) {
    return;
  }
  const Message message = parseMessage(line);
  if (const auto* request = std::get_if<Request>(&message)) {
    take(*request);
  } else if (const auto* notification = std::get_if<Notification>(&message)) {
    take(*notification);
  } else if (const auto* malformed = std::get_if<Malformed>(&message)) {
    write(malformed->error);
  }
}

void Server::refuseLongLine() {
  write(errorOf({}, ErrorCode::invalidRequest, "a message is longer than 16 MiB"));
}

void Server::take(const Request& request) {
  if (const auto refusal = refuseVersion(request)) {
    write(*refusal);
  } else if (request.method == "initialize") {
    answer(request, greeting(request, version_));
  } else if (request.method == "server/discover") {
    answer(request, discovery(), Keep::yes);
  } else if (request.method == "ping") {
    answer(request, Json::object());
  } else if (request.method == "tools/list") {
    answer(request, {{"tools", toolList()}}, Keep::yes);
  } else if (request.method == "tools/call") {
    startCall(request);
  } else {
    write(errorOf(request.id, ErrorCode::unknownMethod,
                  "there is no method " + Json(request.method).dump()));
  }
}

void Server::take(const Notification& notification) {
  const auto id = notification.parameters.find("requestId");
  if (notification.method != "notifications/cancelled" || id == notification.parameters.end()) {
    return;
  }
  const std::lock_guard lock(callsMutex_);
  if (const auto call = calls_.find(*id); call != calls_.end()) {
    call->second->interrupt();
  }
}

void Server::startCall(const Request& request) {
  const auto refuse = [&](ErrorCode code, const std::string& text) {
    write(errorOf(request.id, code, text));
  };
  const std::string* name = stringMember(request.parameters, "name");
  const ctl::Command* tool = name ? toolCommand(*name) : nullptr;
  if (!tool) {
    const std::string called = name ? Json(*name).dump() : "without a name";
    return refuse(ErrorCode::invalidParameters, "there is no tool " + called);
  }
  const auto interruption = std::make_shared<Interruption>();
  {
    const std::lock_guard lock(callsMutex_);
    if (!calls_.emplace(request.id, interruption).second) {
      return refuse(ErrorCode::invalidRequest, "a call with this id is under way");
    }
  }
  if (!workers_.submit([=, this] { runCall(request, *tool, *interruption); })) {
    const std::lock_guard lock(callsMutex_);
    calls_.erase(request.id);
    answer(request, failureResult("Too many calls are under way; wait for some of them."));
  }
}

void Server::runCall(const Request& request, const ctl::Command& tool, Interruption& interruption) {
  Json result;
  if (!interruption.interrupted()) {
    const Json arguments = request.parameters.value("arguments", Json::object());
    result = arguments.is_object() ? tools_.call(tool, arguments, interruption)
                                   : failureResult("\"arguments\" must be an object.");
  }
  {
    const std::lock_guard lock(callsMutex_);
    calls_.erase(request.id);
  }
  if (interruption.interrupted()) {
    return;
  }
  try {
    answer(request, std::move(result));
  } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): the host reads no more
  }
}

void Server::answer(const Request& request, Json result, Keep keep) {
  write(resultOf(request.id, inEra(eraOf(request), std::move(result), keep, version_)));
}

void Server::write(const Json& message) {
  const std::string line = serializeLossily(message);
  const std::lock_guard lock(outputMutex_);
  output_(line);
}

bool Server::finish() {
  if (workers_.waitUntilIdle(after(afterwards))) {
    return true;
  }
  {
    const std::lock_guard lock(callsMutex_);
    for (const auto& [id, interruption] : calls_) {
      interruption->interrupt();
    }
  }
  return workers_.waitUntilIdle(after(afterwards));
}

bool serve(Server& server, int input) {
  const auto buffer = std::make_unique<char[]>(readSize);
  LineSplitBuffer lines;
  bool skipping = false;  // the rest of a line that is too long
  ssize_t n = 0;
  while ((n = readSome(input, {buffer.get(), readSize})) > 0) {
    lines.append({buffer.get(), static_cast<std::size_t>(n)});
    while (const auto line = lines.next()) {
      if (!skipping) {
        server.receive(*line);
      }
      skipping = false;
    }
    if (lines.pendingBytes() > longestLine) {
      if (!skipping) {
        server.refuseLongLine();
      }
      skipping = true;
      lines = LineSplitBuffer();
    }
  }
  return server.finish();
}

}  // namespace tervain::mcp
