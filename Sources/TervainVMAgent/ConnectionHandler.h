#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Accessibility.h"
#include "TervainVMAgent/AXRegistry.h"
#include "TervainVMAgent/OperationSettings.h"
#include "TervainVMAgent/Reply.h"
#include "VMAgentCore/Json.h"
#include "VMAgentCore/LineSplitBuffer.h"
#include "VMAgentCore/ResultBox.h"
#include "VMAgentCore/UniqueFD.h"

namespace tervain {

/// Serves one host connection, from accept to close, on the calling thread. Every operation is one
/// of its methods: the request's object in, the reply's object out. An operation reports its
/// failures in its reply and throws nothing across the request boundary.
class ConnectionHandler {
 public:
  explicit ConnectionHandler(UniqueFD socket, const OperationSettings& settings = {})
      : fd_(std::move(socket)), settings_(settings) {}
  ConnectionHandler(const ConnectionHandler&) = delete;
  ConnectionHandler& operator=(const ConnectionHandler&) = delete;

  /// Closes the connection and logs it.
  ~ConnectionHandler();

  /// Serves until the host has gone, can't be written to, or has sent more than
  /// `AgentWire::maxPendingBytes` without a line feed.
  void run();

  /// The operation that a request names, or null if there is none. `request` owns the string.
  static const std::string* requestOp(const std::optional<Json>& request);

  /// What a result code of the accessibility interface means, for the host's operator.
  static std::string describe(Platform::AXError error);

 private:
  enum class Next { readOn, close };

  /// Serves one line that is not empty.
  Next serve(std::string_view requestLine);

  /// The reply to an ordinary request.
  Reply dispatch(const std::optional<Json>& request);

  // Operations that take over the connection and write their own frames or reply. They get the
  // request as it was parsed: nothing when its line is not a JSON object.
  void runExec(const std::optional<Json>& request);
  void runShellEvents(const std::optional<Json>& request);

  // Ordinary operations.
  Reply opPing();
  [[nodiscard]] Reply opScreenshot(const Json& request) const;
  Reply opAXDump(const Json& request);
  Reply opAXElementAt(const Json& request);
  Reply opAXAction(const Json& request);
  Reply opAXSetValue(const Json& request);
  Reply opAXFocus(const Json& request);
  Reply opClick(const Json& request);
  Reply opMove(const Json& request);
  Reply opDrag(const Json& request);
  Reply opType(const Json& request);
  Reply opKey(const Json& request);
  Reply opScroll(const Json& request);
  Reply opCursorPosition();
  [[nodiscard]] Reply opLaunchApp(const Json& request) const;

  /// The reply to a "screenshot" of the display with an index. Any other index than that of a
  /// display means the first.
  static Reply captureDisplay(std::int64_t index, Deadline deadline);

  /// The element that the member "ref" of a request names, if it names one of this connection's.
  [[nodiscard]] std::optional<Platform::AXElement> resolveRef(const Json& request) const;

  /// The answer to a "ref" that names no element, or one that is gone.
  static Reply staleRefReply(const Json& request);

  /// How many of an element's children are looked at.
  static constexpr std::size_t maxChildren = 48;

  /// An element as a node of a reply, under a new ref, with what lies below it down to `maxDepth`
  /// and as far as the budget of nodes, which all of a walk share, goes.
  Json buildNode(Platform::AXReader& reader, const Platform::AXElement& element, int depth,
                 int maxDepth, int& budget);
  static void addAttributes(Json& node, Platform::AXReader& reader,
                            const Platform::AXElement& element);
  void addChildren(Json& node, Platform::AXReader& reader, const Platform::AXElement& element,
                   int depth, int maxDepth, int& budget);

  // Attributes as nodes show them; nothing when they can't be read or have another type.
  static std::optional<std::string> copyString(Platform::AXReader& reader,
                                               const Platform::AXElement& element,
                                               Platform::AXAttribute attribute);
  static std::optional<bool> copyBool(Platform::AXReader& reader,
                                      const Platform::AXElement& element,
                                      Platform::AXAttribute attribute);
  static std::optional<Json> copyFrame(Platform::AXReader& reader,
                                       const Platform::AXElement& element);
  static std::optional<std::string> copyValueDescription(Platform::AXReader& reader,
                                                         const Platform::AXElement& element);

  struct Operation;
  static const Operation operations[];

  UniqueFD fd_;
  OperationSettings settings_;
  LineSplitBuffer lines_;
  AXRegistry axRegistry_;
};

// The log lines that begin and end a connection.
void logConnected(int fd);
void logDisconnected(int fd);

}  // namespace tervain
