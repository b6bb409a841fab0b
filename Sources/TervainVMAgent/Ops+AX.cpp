#include <algorithm>
#include <chrono>
#include <limits>

#include "Platform/Workspace.h"
#include "TervainVMAgent/ConnectionHandler.h"
#include "VMAgentCore/FatalError.h"

namespace tervain {

using Platform::AXElement;
using Platform::AXError;
using Platform::AXReader;

namespace {

/// How long an application may take to answer one question.
constexpr std::chrono::milliseconds messagingTimeout{1500};

/// How many nodes a dump holds at the most, so that no reply gets out of hand.
constexpr int nodeBudget = 800;

constexpr std::int64_t defaultMaxDepth = 12;
constexpr std::int64_t leastMaxDepth = 1;
constexpr std::int64_t greatestMaxDepth = 25;

pid_t checkedPid(std::int64_t pid) {
  if (pid < std::numeric_limits<std::int32_t>::min() ||
      pid > std::numeric_limits<std::int32_t>::max()) {
    fatalError("the process identifier in \"pid\" does not fit 32 bits");
  }
  return static_cast<pid_t>(pid);
}

/// The process that a dump is about: the one that the request names, else the frontmost.
std::optional<pid_t> dumpTarget(const Json& request) {
  if (const auto pid = integerMember(request, "pid")) {
    return checkedPid(*pid);
  }
  return Platform::frontmostApplication();
}

Reply failed(std::string what, AXError error) {
  return Reply::failure(what.append(" failed (") + ConnectionHandler::describe(error) + ")");
}

}  // namespace

std::string ConnectionHandler::describe(AXError error) {
  switch (error) {
    case AXError::success:
      return "success";
    case AXError::invalidUIElement:
      return "kAXErrorInvalidUIElement — stale element";
    case AXError::cannotComplete:
      return "kAXErrorCannotComplete — the app did not respond in time";
    case AXError::attributeUnsupported:
      return "attribute unsupported";
    case AXError::actionUnsupported:
      return "action unsupported";
    case AXError::notImplemented:
      return "the app does not implement this AX request";
    case AXError::apiDisabled:
      return "kAXErrorAPIDisabled — accessibility is disabled for this app";
    case AXError::noValue:
      return "no value";
    default:
      return "AXError " + std::to_string(static_cast<std::int32_t>(error));
  }
}

std::optional<AXElement> ConnectionHandler::resolveRef(const Json& request) const {
  const std::string* ref = stringMember(request, "ref");
  return ref ? axRegistry_[*ref] : std::nullopt;
}

Reply ConnectionHandler::staleRefReply(const Json& request) {
  const std::string* ref = stringMember(request, "ref");
  return Reply::failure("element ref \"" + (ref ? *ref : "?") +
                        "\" is unknown or stale — refs are only valid until the next ax_dump; "
                        "re-dump and retry");
}

Reply ConnectionHandler::opAXDump(const Json& request) {
  const auto pid = dumpTarget(request);
  if (!pid) {
    return Reply::failure("no frontmost application to dump");
  }
  const auto maxDepth =
      static_cast<int>(std::clamp(integerMember(request, "maxDepth").value_or(defaultMaxDepth),
                                  leastMaxDepth, greatestMaxDepth));
  axRegistry_.reset();
  const AXElement root = Platform::applicationElement(*pid, messagingTimeout);
  int budget = nodeBudget;
  AXReader reader(root, {maxDepth, budget, maxChildren});
  Json reply{{"ok", true}, {"tree", buildNode(reader, root, 0, maxDepth, budget)}};
  reply["app"] = Platform::applicationName(*pid).value_or("pid " + std::to_string(*pid));
  if (budget <= 0) {
    reply["truncated"] = true;
  }
  return reply;
}

Reply ConnectionHandler::opAXElementAt(const Json& request) {
  const auto x = integerMember(request, "x");
  const auto y = integerMember(request, "y");
  if (!x || !y) {
    return Reply::failure("ax_element_at requires x and y");
  }
  const auto found =
      Platform::elementAtPosition(static_cast<float>(*x), static_cast<float>(*y), messagingTimeout);
  const auto* element = std::get_if<AXElement>(&found);
  if (!element) {
    return Reply::failure("no accessible element at (" + std::to_string(*x) + ", " +
                          std::to_string(*y) + ") (" + describe(std::get<AXError>(found)) + ")");
  }
  AXReader reader;
  int budget = 1;
  return Json{{"ok", true}, {"node", buildNode(reader, *element, 0, 0, budget)}};
}

Reply ConnectionHandler::opAXAction(const Json& request) {
  const auto element = resolveRef(request);
  if (!element) {
    return staleRefReply(request);
  }
  const std::string* named = stringMember(request, "action");
  const std::string action = named && !named->empty() ? *named : "AXPress";
  switch (const AXError result = Platform::performAction(*element, action)) {
    case AXError::success:
      return Reply::success();
    case AXError::cannotComplete:
      // Not a failure: the host must look before it repeats what may have been done.
      return Json{{"ok", true},
                  {"note",
                   "the app did not confirm within the AX timeout — the action possibly "
                   "succeeded; re-dump to verify"}};
    case AXError::invalidUIElement:
      return staleRefReply(request);
    default:
      return failed(action, result);
  }
}

Reply ConnectionHandler::opAXSetValue(const Json& request) {
  const auto element = resolveRef(request);
  if (!element) {
    return staleRefReply(request);
  }
  const std::string* value = stringMember(request, "value");
  if (!value) {
    return Reply::failure("ax_set_value requires a string \"value\"");
  }
  if (!Platform::isValueSettable(*element)) {
    return Reply::failure(
        "this element's AXValue is not settable — focus it (ax_focus) and type instead");
  }
  const AXError result = Platform::setValue(*element, *value);
  if (result == AXError::invalidUIElement) {
    return staleRefReply(request);
  }
  return result == AXError::success ? Reply::success() : failed("setting AXValue", result);
}

Reply ConnectionHandler::opAXFocus(const Json& request) {
  const auto element = resolveRef(request);
  if (!element) {
    return staleRefReply(request);
  }
  const AXError result = Platform::setFocused(*element);
  if (result == AXError::invalidUIElement) {
    return staleRefReply(request);
  }
  return result == AXError::success ? Reply::success() : failed("focusing", result);
}

}  // namespace tervain
