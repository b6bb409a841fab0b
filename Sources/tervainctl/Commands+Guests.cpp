// Which agents there are, and what state they are in.

#include <algorithm>
#include <cmath>

#include "VMAgentClient/AgentStatus.h"
#include "VMAgentClient/Diagnosis.h"
#include "tervainctl/CommandTable/Text.h"
#include "tervainctl/Commands.h"

namespace tervain::ctl {
namespace {

const std::vector<std::string> allGrants(grantNames.begin(), grantNames.end());

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    text.append(text.empty() ? "" : ", ").append(word);
  }
  return text;
}

std::string describe(const Answer& answer) {
  if (const auto* why = std::get_if<std::string>(&answer)) {
    return "no answer: " + *why;
  }
  const auto& status = std::get<AgentStatus>(answer);
  const std::string missing = missingGrants(status, allGrants);
  return "answers; " + (missing.empty() ? "has all grants"
                        : status.grants.empty()
                            ? "lacks all grants"
                            : "has " + joined(status.grants) + ", lacks " + missing);
}

Json toJson(const NamedAgent& agent, const Answer& answer) {
  Json object{{"name", agent.name},
              {"address", toString(agent.address)},
              {"answers", std::holds_alternative<AgentStatus>(answer)}};
  if (const auto* why = std::get_if<std::string>(&answer)) {
    object["error"] = *why;
  } else {
    object["grants"] = std::get<AgentStatus>(answer).grants;
  }
  return object;
}

std::string padded(std::string text, std::size_t width) {
  text.resize(std::max(text.size(), width), ' ');
  return text + "  ";
}

std::string table(const std::vector<NamedAgent>& agents, const std::vector<Answer>& answers) {
  std::size_t names = 0;
  std::size_t addresses = 0;
  for (const NamedAgent& agent : agents) {
    names = std::max(names, agent.name.size());
    addresses = std::max(addresses, toString(agent.address).size());
  }
  std::string text;
  for (std::size_t i = 0; i < agents.size(); ++i) {
    text += padded(agents[i].name, names) + padded(toString(agents[i].address), addresses) +
            describe(answers[i]) + "\n";
  }
  return text;
}

std::vector<std::string> wantedGrants(const Call& call) {
  std::vector<std::string> wanted;
  const auto text = textArgument(call, "for");
  for (const std::string_view grant : text ? split(*text, ',') : std::vector<std::string_view>()) {
    if (std::find(grantNames.begin(), grantNames.end(), grant) == grantNames.end()) {
      throw BadArgument("--for: there is no grant \"" + std::string(grant) + "\", only " +
                        joined(allGrants));
    }
    wanted.emplace_back(grant);
  }
  return wanted;
}

}  // namespace

int listAgents(const Call& call) {
  const auto agents = readAgents(processEnvironment());
  if (agents.empty()) {
    remark("no agent has a name; a line NAME ADDRESS gives it one, in " +
           agentsFile(processEnvironment()).value_or("the file that TERVAIN_AGENTS names"));
  }
  constexpr double milliseconds = 1000;
  const double seconds = std::min<double>(limitOf(call.command, call.arguments),
                                          static_cast<double>(connectLimit.count()) / milliseconds);
  const auto answers =
      askAll(agents, std::chrono::milliseconds(std::lround(seconds * milliseconds)));
  if (given(call, "json")) {
    Json array = Json::array();
    for (std::size_t i = 0; i < agents.size(); ++i) {
      array.push_back(toJson(agents[i], answers[i]));
    }
    print(array.dump() + "\n");
  } else {
    print(table(agents, answers));
  }
  const bool all = std::all_of(answers.begin(), answers.end(), [](const Answer& answer) {
    return std::holds_alternative<AgentStatus>(answer);
  });
  return all ? 0 : failed;
}

int waitReady(const Call& call) {
  waitUntilReady(agentOf(call.arguments), wantedGrants(call), remark);
  return 0;
}

int examine(const Call& call) {
  const bool well =
      diagnose(agentText(call.arguments), processEnvironment(), [](const Finding& finding) {
        print((finding.well ? "well   " : "WRONG  ") + finding.what + "\n" +
              (finding.remedy.empty()
                   ? ""
                   : "       " + replaced(finding.remedy, "\n", "\n       ") + "\n"));
      });
  return well ? 0 : failed;
}

}  // namespace tervain::ctl
