#include "tervainctl/Mcp/Eras.h"

#include <algorithm>
#include <array>

namespace tervain::mcp {
namespace {

constexpr std::string_view statelessVersion = "2026-07-28";
constexpr std::array<std::string_view, 4> greetedVersions{"2025-11-25", "2025-06-18", "2025-03-26",
                                                          "2024-11-05"};

constexpr const char* versionKey = "io.modelcontextprotocol/protocolVersion";
constexpr const char* serverKey = "io.modelcontextprotocol/serverInfo";
constexpr const char* discover = "server/discover";

/// How long hosts may keep a list of tools, in milliseconds: it is the same as long as the server
/// is, so an hour is as good as any.
constexpr int keptFor = 3'600'000;

constexpr const char* instructions =
    "Sees and uses the desktop of a virtual machine. Take a snapshot to see an application's "
    "elements, and act on them by their refs or by their words; that is surer and cheaper than "
    "pictures. After an action, wait for what should come of it, or take a new snapshot: actions "
    "do not answer with one. Coordinates are pixels of the last screenshot, or points of the main "
    "display before there is one.";

std::optional<std::string> versionOf(const Request& request) {
  const auto meta = request.parameters.find("_meta");
  const bool has = meta != request.parameters.end() && meta->is_object();
  const std::string* version = has ? stringMember(*meta, versionKey) : nullptr;
  return version ? std::optional(*version) : std::nullopt;
}

Json server(const std::string& version) {
  return {{"name", "tervain"}, {"title", "Tervain virtual machine"}, {"version", version}};
}

Json capabilities() {
  return {{"tools", {{"listChanged", false}}}};
}

}  // namespace

Era eraOf(const Request& request) {
  return versionOf(request) || request.method == discover ? Era::stateless : Era::greeted;
}

std::optional<Json> refuseVersion(const Request& request) {
  const auto version = versionOf(request);
  if (!version || *version == statelessVersion) {
    return std::nullopt;
  }
  return errorOf(request.id, ErrorCode::unsupportedVersion, "the protocol's version is not known",
                 {{"supported", {statelessVersion}}, {"requested", *version}});
}

Json greeting(const Request& request, const std::string& version) {
  const std::string* wanted = stringMember(request.parameters, "protocolVersion");
  const bool known = wanted && std::find(greetedVersions.begin(), greetedVersions.end(), *wanted) !=
                                   greetedVersions.end();
  return {{"protocolVersion", known ? *wanted : std::string(greetedVersions.front())},
          {"capabilities", capabilities()},
          {"serverInfo", server(version)},
          {"instructions", instructions}};
}

Json discovery() {
  return {{"supportedVersions", {statelessVersion}},
          {"capabilities", capabilities()},
          {"instructions", instructions}};
}

Json inEra(Era era, Json result, Keep keep, const std::string& version) {
  if (era == Era::stateless) {
    result["resultType"] = "complete";
    result["_meta"][serverKey] = server(version);
    if (keep == Keep::yes) {
      result["ttlMs"] = keptFor;
      result["cacheScope"] = "public";
    }
  }
  return result;
}

}  // namespace tervain::mcp
