#include <cerrno>
#include <cstdint>

#include "VMAgentCore/AgentError.h"
#include "tervainctl/Outline.h"
#include "tervainctl/RequestOptions.h"

namespace tervain::ctl {
namespace {

/// Prints the reply's element under this key as an outline, or the reply as it is.
int show(AgentConnection& connection, const Json& request, const char* key, bool raw) {
  const auto reply = ask(connection, request);
  if (!reply) {
    return failed;
  }
  const auto node = reply->find(key);
  if (node == reply->end() || !node->is_object()) {
    throw AgentError::posix("reading the elements", EBADMSG);
  }
  print(raw ? reply->dump() + "\n" : outline(*node));
  if (truthy(*reply, "truncated")) {
    complain("there are more elements than the agent shows at once; try a smaller --depth");
  }
  return 0;
}

Action showing(CLI::App& options, const RequestOptions& request, const char* key) {
  const auto raw = std::make_shared<bool>(false);
  options.add_flag("--json", *raw, "Print the reply as it is");
  return [raw, key, request = request.request()](AgentConnection& connection, const Call&) {
    return show(connection, *request, key, *raw);
  };
}

void addRef(const RequestOptions& request) {
  request.add<std::string>("ref", "REF", "The element, by its ref in this session's last tree");
}

}  // namespace

Action declareTree(CLI::App& options) {
  const RequestOptions request(options, "ax_dump");
  request.add<std::int32_t>("pid", "--pid",
                            "The application's process (default: the frontmost application)");
  request.add<std::int64_t>("maxDepth", "--depth", "How many levels, 1 to 25 (default: 12)");
  return showing(options, request, "tree");
}

Action declareAt(CLI::App& options) {
  const RequestOptions request(options, "ax_element_at");
  request.add<std::int64_t>("x", "X", "From the left of the main display; may be negative");
  request.add<std::int64_t>("y", "Y", "From its top; may be negative");
  return showing(options, request, "node");
}

Action declarePress(CLI::App& options) {
  const RequestOptions request(options, "ax_action");
  addRef(request);
  request.add<std::string>("action", "ACTION", "One of its actions (default: AXPress)")
      ->required(false);
  return request.action();
}

Action declareSet(CLI::App& options) {
  const RequestOptions request(options, "ax_set_value");
  addRef(request);
  request.add<std::string>("value", "VALUE", "The new value, which may be empty");
  return request.action();
}

Action declareFocus(CLI::App& options) {
  const RequestOptions request(options, "ax_focus");
  addRef(request);
  return request.action();
}

}  // namespace tervain::ctl
