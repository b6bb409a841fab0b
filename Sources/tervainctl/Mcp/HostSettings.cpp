#include "tervainctl/Mcp/HostSettings.h"

#include <algorithm>
#include <array>

#include "VMAgentCore/Json.h"

namespace tervain::mcp {
namespace {

enum class Format { json, toml, yaml };

struct Host {
  std::string_view name;
  std::string_view key;   // under which servers stand
  std::string_view type;  // what says that the server is started as a program; empty: nothing does
  std::string_view place;
  Format format = Format::json;
};

constexpr std::string_view usualKey = "mcpServers";
constexpr std::array table{
    Host{"generic", usualKey, "", "Most hosts read this"},
    Host{"claude-code", usualKey, "stdio", "This belongs into .mcp.json in the project's folder"},
    Host{"claude-desktop", usualKey, "",
         "This belongs into claude_desktop_config.json: Settings, Developer, Edit Config"},
    Host{"cline", usualKey, "", "This belongs into cline_mcp_settings.json"},
    Host{"codex", "mcp_servers", "", "This belongs into ~/.codex/config.toml", Format::toml},
    Host{"cursor", usualKey, "", "This belongs into ~/.cursor/mcp.json or .cursor/mcp.json"},
    Host{"gemini-cli", usualKey, "", "This belongs into ~/.gemini/settings.json"},
    Host{"goose", "extensions", "stdio", "This belongs into ~/.config/goose/config.yaml",
         Format::yaml},
    Host{"vscode", "servers", "stdio", "This belongs into .vscode/mcp.json"},
    Host{"windsurf", usualKey, "", "This belongs into ~/.codeium/windsurf/mcp_config.json"},
    Host{"zed", "context_servers", "", "This belongs into ~/.config/zed/settings.json"},
};

constexpr const char* serverName = "tervain";

/// A text as JSON, TOML and YAML alike write it.
std::string quoted(const std::string& text) {
  return serializeLossily(text);
}

using Words = std::vector<std::string>;

std::string json(const Host& host, const Words& command) {
  // By hand, as the library would put the members in another order.
  std::string text =
      "{\n  " + quoted(std::string(host.key)) + ": {\n    " + quoted(serverName) + ": {\n";
  text += host.type.empty() ? "" : "      \"type\": " + quoted(std::string(host.type)) + ",\n";
  text += "      \"command\": " + quoted(command.front()) + ",\n      \"args\": [";
  for (std::size_t i = 1; i < command.size(); ++i) {
    text.append(i == 1 ? "" : ", ").append(quoted(command[i]));
  }
  return text + "]\n    }\n  }\n}\n";
}

std::string toml(const Host& host, const Words& command) {
  std::string text = "[" + std::string(host.key) + "." + serverName +
                     "]\ncommand = " + quoted(command.front()) + "\nargs = [";
  for (std::size_t i = 1; i < command.size(); ++i) {
    text.append(i == 1 ? "" : ", ").append(quoted(command[i]));
  }
  return text + "]\n";
}

std::string yaml(const Host& host, const Words& command) {
  std::string text = std::string(host.key) + ":\n  " + serverName + ":\n    name: " + serverName +
                     "\n    type: " + std::string(host.type) +
                     "\n    enabled: true\n    cmd: " + quoted(command.front()) + "\n    args:\n";
  for (std::size_t i = 1; i < command.size(); ++i) {
    text += "      - " + quoted(command[i]) + "\n";
  }
  return text;
}

}  // namespace

std::optional<HostSettings> settingsFor(std::string_view host, const Words& command) {
  const auto* const found = std::find_if(table.begin(), table.end(),
                                         [host](const Host& known) { return known.name == host; });
  if (found == table.end()) {
    return std::nullopt;
  }
  const auto write = found->format == Format::json   ? json
                     : found->format == Format::toml ? toml
                                                     : yaml;
  return HostSettings{write(*found, command), std::string(found->place)};
}

}  // namespace tervain::mcp
