#include <sys/socket.h>

#include <filesystem>

#include "TervainVMAgent/ConnectionHandler.h"
#include "VMAgentCore/AgentWire.h"
#include "VMAgentCore/IO.h"
#include "VMAgentCore/ShellSpool.h"

namespace tervain {
namespace {

namespace wire = AgentWire::ShellEvents;

Reply reply(ShellSpool::DrainResult& result) {
  Json object{{"ok", true},
              {wire::filesKey, result.files},
              {wire::bytesKey, result.data.size()},
              {wire::truncatedKey, result.truncated}};
  return {std::move(object), wire::eventsKey, std::move(result.data)};
}

}  // namespace

void ConnectionHandler::runShellEvents(const std::optional<Json>& request) {
  static const Json noOptions = Json::object();
  const Json& options = request ? *request : noOptions;
  const std::string* dir = stringMember(options, wire::dirKey);
  const auto maxBytes = integerMember(options, wire::maxBytesKey);
  auto result = ShellSpool::drain(dir ? *dir : ShellSpool::defaultDir(),
                                  maxBytes.value_or(ShellSpool::defaultCap));
  if (!writeAll(fd_.get(), reply(result).line())) {
    shutdown(fd_.get(), SHUT_RDWR);  // so that the request loop ends: nobody is left to answer
    return;
  }
  if (!truthy(options, wire::truncateKey)) {
    return;
  }
  // Only now, when all of it has been given to the host.
  for (const std::string& path : result.drainedPaths) {
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
  }
}

}  // namespace tervain
