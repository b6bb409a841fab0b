#include "TervainVMAgent/ConnectionHandler.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <type_traits>

#include "Platform/AutoreleasePool.h"
#include "Platform/Privacy.h"
#include "VMAgentCore/AgentWire.h"
#include "VMAgentCore/IO.h"
#include "VMAgentCore/Log.h"

namespace tervain {
namespace {

constexpr const char* malformedRequest =
    "malformed request (want one JSON object per line with an \"op\")";

/// What the system must let the agent do before an operation looks at its request.
struct Grant {
  bool (*given)();
  const char* refusal;
};
constexpr Grant accessibility{
    Platform::accessibilityGranted,
    "Accessibility (kTCCServiceAccessibility) is not granted to the agent — re-run provisioning"};
constexpr Grant screenRecording{
    Platform::screenRecordingGranted,
    "Screen Recording (kTCCServiceScreenCapture) is not granted to the agent — re-run "
    "provisioning"};
constexpr Grant postEvent{
    Platform::postEventGranted,
    "input synthesis (kTCCServicePostEvent) is not granted to the agent — re-run provisioning"};

/// Calls an operation, one that reads its request or one that doesn't.
template <auto operation>
Reply call(ConnectionHandler& handler, const Json& request) {
  if constexpr (std::is_invocable_v<decltype(operation), ConnectionHandler&, const Json&>) {
    return (handler.*operation)(request);
  } else {
    return (handler.*operation)();
  }
}

}  // namespace

struct ConnectionHandler::Operation {
  std::string_view name;
  const Grant* grant;  ///< null if it needs none
  Reply (*call)(ConnectionHandler& handler, const Json& request);
};

/// Every ordinary operation. "exec" and "shell-events" write their own replies and are not here.
const ConnectionHandler::Operation ConnectionHandler::operations[] = {
    {"ping", nullptr, call<&ConnectionHandler::opPing>},
    {"screenshot", &screenRecording, call<&ConnectionHandler::opScreenshot>},
    {"ax_dump", &accessibility, call<&ConnectionHandler::opAXDump>},
    {"ax_element_at", &accessibility, call<&ConnectionHandler::opAXElementAt>},
    {"ax_action", &accessibility, call<&ConnectionHandler::opAXAction>},
    {"ax_set_value", &accessibility, call<&ConnectionHandler::opAXSetValue>},
    {"ax_focus", &accessibility, call<&ConnectionHandler::opAXFocus>},
    {"click", &postEvent, call<&ConnectionHandler::opClick>},
    {"move", &postEvent, call<&ConnectionHandler::opMove>},
    {"drag", &postEvent, call<&ConnectionHandler::opDrag>},
    {"type", &postEvent, call<&ConnectionHandler::opType>},
    {"key", &postEvent, call<&ConnectionHandler::opKey>},
    {"scroll", &postEvent, call<&ConnectionHandler::opScroll>},
    {"cursor_position", nullptr, call<&ConnectionHandler::opCursorPosition>},
    {"launch_app", nullptr, call<&ConnectionHandler::opLaunchApp>},
};

void logConnected(int fd) {
  agentLog("host connected (fd ", Decimal(fd), ")");
}

void logDisconnected(int fd) {
  agentLog("host disconnected (fd ", Decimal(fd), ")");
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
  const Platform::AutoreleasePool pool;
  std::optional<Json> request = parseMembers(requestLine, AgentWire::hostMembers);
  lines_.releaseTaken();
  const std::string* op = requestOp(request);
  if (op && *op == AgentWire::Exec::op) {
    runExec(request);
    return Next::close;
  }
  if (op && *op == AgentWire::ShellEvents::op) {
    runShellEvents(request);
    return Next::readOn;
  }
  Reply reply = dispatch(request);
  request.reset();  // a large request and its reply are not in memory at the same time
  return writeAll(fd_.get(), std::move(reply).line()) ? Next::readOn : Next::close;
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
  if (const Grant* grant = operation->grant; grant && !grant->given()) {
    return Reply::failure(grant->refusal);
  }
  return operation->call(*this, *request);
}

}  // namespace tervain
