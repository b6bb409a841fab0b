#include "tervainctl/Ssh.h"

#include <unistd.h>

#include <cstdlib>

#include "VMAgentClient/AgentNames.h"
#include "VMAgentClient/Connect.h"
#include "VMAgentClient/SshCommandLine.h"
#include "tervainctl/CommandTable/Arguments.h"
#include "tervainctl/Commands.h"
#include "tervainctl/RunInGuest.h"
#include "tervainctl/TimeLimit.h"

namespace tervain::ctl {
namespace {

int refuse(const SshRefusal& refusal) {
  complain(refusal.message);
  return notRun;
}

/// Whether the command gets a terminal, as ssh decides it.
bool wantsTerminal(const SshCommandLine& line) {
  using enum SshCommandLine::Terminal;
  const bool here = isatty(STDIN_FILENO) == 1;
  switch (line.terminal) {
    case forced:
      return true;
    case never:
      return false;
    case wanted:
      if (!here && !line.quiet) {
        remark("standard input is no terminal, so the command gets none");
      }
      return here;
    default:
      return here && line.words.empty();
  }
}

void applyTimeLimit() {
  if (const char* text = std::getenv("TERVAIN_TIMEOUT"); text && *text) {
    const std::string word = text;
    endAfter(valueOf(timeoutOption(), {&word, 1}).get<double>());
  }
}

int run(const SshCommandLine& line) {
  const AgentAddress agent = resolveAgent(line.host, processEnvironment());
  const auto guest = guestLine(line);
  if (const auto* refusal = std::get_if<SshRefusal>(&guest)) {
    return refuse(*refusal);
  }
  const auto limit = line.connectLimit.value_or(connectLimit);
  AgentConnection connection(connectTo(agent, limit));
  awaitAnswer(connection, limit);
  return runInGuest(std::move(connection), agent,
                    {.line = std::get<std::string>(guest),
                     .noInput = line.noInput,
                     .terminal = wantsTerminal(line)});
}

}  // namespace

int runSsh(const Words& arguments) {
  const auto parsed = parseSshCommandLine(arguments, processEnvironment());
  if (const auto* refusal = std::get_if<SshRefusal>(&parsed)) {
    return refuse(*refusal);
  }
  const auto& line = std::get<SshCommandLine>(parsed);
  try {
    switch (line.purpose) {
      case SshCommandLine::Purpose::showVersion:
        remark("tervain-ssh " TERVAIN_VERSION);
        return 0;
      case SshCommandLine::Purpose::showConfiguration:
        // By this git finds out that it has to do with something like OpenSSH.
        print("host " + line.host + "\nhostname " + line.host + "\n");
        return 0;
      default:
        applyTimeLimit();
        return run(line);
    }
  } catch (const OutputClosed&) {
    return outputClosed;
  } catch (const std::exception& error) {
    complain(error.what());
    return notRun;
  }
}

}  // namespace tervain::ctl
