#include "VMAgentClient/AgentNames.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>

#include "VMAgentCore/AgentError.h"

namespace tervain {
namespace {

constexpr std::string_view blanks = " \t\r\v\f";

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(blanks);
  return first == text.npos ? std::string_view()
                            : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// The line up to its comment.
std::string_view withoutComment(std::string_view line) {
  for (std::size_t at = line.find('#'); at != line.npos; at = line.find('#', at + 1)) {
    if (at == 0 || blanks.find(line[at - 1]) != blanks.npos) {
      return line.substr(0, at);
    }
  }
  return line;
}

bool isName(std::string_view text) {
  return !text.empty() && text.front() != '-' && text.find_first_of(":%/@") == text.npos;
}

NamedAgent parseLine(std::string_view line, const std::string& place) {
  const std::size_t end = std::min(line.find_first_of(blanks), line.size());
  const std::string name(line.substr(0, end));
  const std::string_view text = trimmed(line.substr(end));
  const auto address = parseAgentAddress(text);
  if (!isName(name)) {
    throw NoSuchAgent(place +
                      ": a name holds no colon, %, / or @, and begins with no dash: " + name);
  }
  if (!address) {
    throw NoSuchAgent(place + ": not an address of an agent: " + std::string(text));
  }
  return {name, *address};
}

bool isCalled(const NamedAgent& agent, std::string_view name) {
  return agent.name == name;
}

}  // namespace

std::optional<std::string> agentsFile(const Environment& environment) {
  const auto valueOf = [&environment](std::string_view name) {
    const auto found = environment.find(name);
    return found == environment.end() ? std::string() : found->second;
  };
  if (std::string file = valueOf("TERVAIN_AGENTS"); !file.empty()) {
    return file;
  }
  if (const std::string folder = valueOf("XDG_CONFIG_HOME"); !folder.empty()) {
    return folder + "/tervain/agents";
  }
  const std::string home = valueOf("HOME");
  return home.empty() ? std::nullopt : std::optional(home + "/.config/tervain/agents");
}

std::vector<NamedAgent> parseAgents(std::string_view text, const std::string& file) {
  std::vector<NamedAgent> agents;
  for (int number = 1; !text.empty(); ++number) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = trimmed(withoutComment(text.substr(0, end)));
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.empty()) {
      continue;
    }
    const std::string place = file + ":" + std::to_string(number);
    NamedAgent agent = parseLine(line, place);
    if (std::any_of(agents.begin(), agents.end(),
                    [&](const NamedAgent& other) { return isCalled(other, agent.name); })) {
      throw NoSuchAgent(place + ": there is another agent of this name: " + agent.name);
    }
    agents.push_back(std::move(agent));
  }
  return agents;
}

std::vector<NamedAgent> readAgents(const Environment& environment) {
  const auto path = agentsFile(environment);
  if (!path) {
    return {};
  }
  errno = 0;
  std::ifstream file(*path);
  if (!file && errno == ENOENT) {
    return {};
  }
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  if (!file) {
    throw AgentError::posix("reading " + *path, errno);
  }
  return parseAgents(text, *path);
}

AgentAddress resolveAgent(std::string_view text, const Environment& environment) {
  if (auto address = parseAgentAddress(text)) {
    return *address;
  }
  if (!isName(text)) {
    throw NoSuchAgent("not an address of an agent: " + std::string(text));
  }
  const auto agents = readAgents(environment);
  const auto found = std::find_if(agents.begin(), agents.end(), [text](const NamedAgent& agent) {
    return isCalled(agent, text);
  });
  if (found == agents.end()) {
    throw NoSuchAgent("no agent is called " + std::string(text) + "; names stand in " +
                      agentsFile(environment).value_or("no file, as HOME is not set"));
  }
  return found->address;
}

}  // namespace tervain
