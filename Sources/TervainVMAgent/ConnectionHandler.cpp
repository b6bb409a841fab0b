#include "TervainVMAgent/ConnectionHandler.h"

#include <algorithm>
#include <iterator>
#include <memory>

#include "VMAgentCore/AgentWire.h"
#include "VMAgentCore/IO.h"
#include "VMAgentCore/Log.h"

namespace tervain {
namespace {

constexpr std::string_view malformedRequest =
    "malformed request (want one JSON object per line with an \"op\")";

}  // namespace

struct ConnectionHandler::Operation {
  std::string_view name;
  Reply (*call)(ConnectionHandler& handler, const Json& request);
};

/// Every ordinary operation. "exec" and "shell-events" write their own replies and are not here.
const ConnectionHandler::Operation ConnectionHandler::operations[] = {
    {"ping", [](ConnectionHandler& handler, const Json&) { return handler.opPing(); }},
    {"ax_dump", [](ConnectionHandler& handler, const Json& r) { return handler.opAXDump(r); }},
    {"ax_element_at",
     [](ConnectionHandler& handler, const Json& r) { return handler.opAXElementAt(r); }},
    {"ax_action", [](ConnectionHandler& handler, const Json& r) { return handler.opAXAction(r); }},
    {"ax_set_value",
     [](ConnectionHandler& handler, const Json& r) { return handler.opAXSetValue(r); }},
    {"ax_focus", [](ConnectionHandler& handler, const Json& r) { return handler.opAXFocus(r); }},
    {"cursor_position",
     [](ConnectionHandler& handler, const Json&) { return handler.opCursorPosition(); }},
};

void logConnected(int fd) {
  agentLog("host connected (fd " + std::to_string(fd) + ")");
}

void logDisconnected(int fd) {
  agentLog("host disconnected (fd " + std::to_string(fd) + ")");
}

ConnectionHandler::~ConnectionHandler() {
  const int fd = fd_.get();
  fd_.reset();
  logDisconnected(fd);
}

void ConnectionHandler::run() {
  // Not zeroed: most connections never touch most of these pages.
  const std::unique_ptr<char[]> buffer(new char[readSize]);
  for (;;) {
    const ssize_t n = readSome(fd_.get(), {buffer.get(), readSize});
    if (n <= 0) {
      return;
    }
    lines_.append({buffer.get(), static_cast<std::size_t>(n)});
    while (const auto line = lines_.next()) {
      if (!line->empty() && serve(*line) == Next::close) {
        return;
      }
    }
    if (lines_.pendingBytes() > AgentWire::maxPendingBytes) {
      return;
    }
  }
}

const std::string* ConnectionHandler::requestOp(const std::optional<Json>& request) {
  return request ? stringMember(*request, "op") : nullptr;
}

ConnectionHandler::Next ConnectionHandler::serve(std::string_view requestLine) {
  const std::optional<Json> request = parseObject(requestLine);
  const std::string* op = requestOp(request);
  if (op && *op == AgentWire::Exec::op) {
    runExec(request);
    return Next::close;
  }
  if (op && *op == AgentWire::ShellEvents::op) {
    runShellEvents(request);
    return Next::readOn;
  }
  return writeAll(fd_.get(), dispatch(request).line()) ? Next::readOn : Next::close;
}

Reply ConnectionHandler::dispatch(const std::optional<Json>& request) {
  const std::string* op = requestOp(request);
  if (!op) {
    return Reply::failure(malformedRequest);
  }
  const auto* const operation =
      std::find_if(std::begin(operations), std::end(operations),
                   [op](const Operation& candidate) { return candidate.name == *op; });
  if (operation == std::end(operations)) {
    return Reply::failure("unknown op '" + *op + "' (agent protocol v" +
                          std::to_string(AgentWire::version) + ")");
  }
  return operation->call(*this, *request);
}

}  // namespace tervain
