#include "VMAgentClient/AgentStatus.h"

#include <algorithm>
#include <future>
#include <thread>

#include "VMAgentClient/ProtocolError.h"

namespace tervain {
namespace {

/// How often a waiting host asks. It costs an agent nothing that shows.
constexpr std::chrono::milliseconds pause{250};

Answer answerOf(const AgentAddress& address, std::chrono::milliseconds limit) {
  try {
    AgentConnection connection(connectTo(address, limit));
    return statusOf(connection, after(limit));
  } catch (const std::exception& error) {
    return std::string(error.what());
  }
}

/// Throws where the agent is not ready.
void requireGrants(AgentConnection& connection, std::span<const std::string> wanted) {
  const std::string missing = missingGrants(statusOf(connection, after(connectLimit)), wanted);
  if (!missing.empty()) {
    throw ProtocolError("the agent answers, but lacks " + missing);
  }
}

void requireSteadiness(const AgentAddress& address, std::span<const std::string> wanted) {
  AgentConnection connection(connectTo(address));
  const Deadline steady = after(steadyTime);
  requireGrants(connection, wanted);
  while (Clock::now() < steady) {
    std::this_thread::sleep_for(pause);
    requireGrants(connection, wanted);
  }
  AgentConnection another(connectTo(address));
  requireGrants(another, wanted);
}

}  // namespace

std::string missingGrants(const AgentStatus& status, std::span<const std::string> wanted) {
  std::string missing;
  for (const std::string& grant : wanted) {
    if (std::find(status.grants.begin(), status.grants.end(), grant) == status.grants.end()) {
      missing.append(missing.empty() ? "" : ", ").append(grant);
    }
  }
  return missing;
}

AgentStatus statusOf(AgentConnection& connection, Deadline deadline) {
  const Json reply = connection.request(Json{{"op", "ping"}}, deadline);
  const auto readiness = reply.find("readiness");
  const auto version = integerMember(reply, "version");
  if (!version || readiness == reply.end() || !readiness->is_object()) {
    throw ProtocolError("what answers there is no TervainVMAgent");
  }
  AgentStatus status{.version = *version, .grants = {}};
  for (const std::string_view name : grantNames) {
    if (truthy(*readiness, name)) {
      status.grants.emplace_back(name);
    }
  }
  return status;
}

std::vector<Answer> askAll(std::span<const NamedAgent> agents, std::chrono::milliseconds limit) {
  std::vector<std::future<Answer>> asked;
  asked.reserve(agents.size());
  for (const NamedAgent& agent : agents) {
    asked.push_back(std::async(std::launch::async, answerOf, agent.address, limit));
  }
  std::vector<Answer> answers;
  answers.reserve(asked.size());
  for (auto& answer : asked) {
    answers.push_back(answer.get());
  }
  return answers;
}

void waitUntilReady(const AgentAddress& address, std::span<const std::string> wantedGrants,
                    const std::function<void(const std::string& why)>& onChange) {
  for (std::string told;;) {
    try {
      return requireSteadiness(address, wantedGrants);
    } catch (const std::runtime_error& error) {
      if (told != error.what()) {
        onChange(told = error.what());
      }
    }
    std::this_thread::sleep_for(pause);
  }
}

}  // namespace tervain
