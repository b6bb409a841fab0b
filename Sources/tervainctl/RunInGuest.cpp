#include "tervainctl/RunInGuest.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <optional>

#include "VMAgentClient/GuestTerminal.h"
#include "VMAgentClient/RemoteCommand.h"
#include "tervainctl/Commands.h"
#include "tervainctl/SignalPipe.h"
#include "tervainctl/Terminal.h"

namespace tervain::ctl {
namespace {

/// Writes to a descriptor that may be slow to take it, such as a pager's. A ready descriptor takes
/// PIPE_BUF bytes without making us wait.
void pass(int fd, std::string_view bytes, RemoteCommand& command) {
  while (!bytes.empty()) {
    command.waitForRoom(fd);
    const ssize_t n = write(fd, bytes.data(), std::min<std::size_t>(bytes.size(), PIPE_BUF));
    if (n >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(n));
    } else if (errno != EINTR && errno != EAGAIN) {
      throwWriteError("writing the output");
    }
  }
}

int status(const RemoteCommand::Result& result) {
  if (const auto* exited = std::get_if<RemoteCommand::Exited>(&result)) {
    if (exited->code >= 0 && exited->code <= notRun) {
      return exited->code;
    }
    complain("the agent can't tell how the command ended");
  } else if (const auto* refused = std::get_if<RemoteCommand::Refused>(&result)) {
    complain(refused->message);
  } else {
    complain("the connection was lost before the command ended");
  }
  return notRun;
}

RemoteCommand::Result runPlain(AgentConnection connection, const GuestRun& run) {
  const SignalPipe signals;
  RemoteCommand command(std::move(connection), run.line);
  const auto passTo = [&command](int fd) {
    return [&command, fd](std::string_view bytes) { pass(fd, bytes, command); };
  };
  return command.run({.input = run.noInput ? -1 : STDIN_FILENO,
                      .signals = signals.readEnd(),
                      .onOutput = passTo(STDOUT_FILENO),
                      .onError = passTo(STDERR_FILENO)});
}

/// Keys that are signals are the guest's terminal's business. A signal that comes from elsewhere
/// ends us, and so the command.
RemoteCommand::Result runInTerminal(AgentConnection connection, const AgentAddress& agent,
                                    const GuestRun& run) {
  // Nothing that the guest writes by itself looks like this.
  const std::string marker = "tervain-terminal-" + std::to_string(getpid());
  const auto size = terminalSize();
  GuestTerminal::Greeting greeting(marker);
  GuestTerminal::Escape escape;
  const char* const kind = std::getenv("TERM");
  const std::string line =
      kind ? GuestShell::inSurroundings(run.line, {.environment = {{"TERM", kind}}}) : run.line;
  RemoteCommand command(std::move(connection), GuestShell::inTerminal(line, marker, size));
  const bool typed = !run.noInput && isatty(STDIN_FILENO) == 1;
  std::optional<RawTerminal> raw;
  if (typed) {
    raw.emplace();
  }
  WindowSize window(agent, size);
  const auto show = [&command](std::string_view bytes) { pass(STDOUT_FILENO, bytes, command); };
  auto result =
      command.run({.input = run.noInput ? -1 : STDIN_FILENO,
                   .onOutput =
                       [&](std::string_view bytes) {
                         const bool known = !greeting.path().empty();
                         show(greeting.take(bytes));
                         if (!known && !greeting.path().empty()) {
                           window.setTerminal(greeting.path());
                         }
                       },
                   .onError = show,
                   .inputFilter = typed ? [&](std::string_view bytes) { return escape.take(bytes); }
                                        : RemoteCommand::Filter()});
  show(greeting.rest());
  return result;
}

}  // namespace

int runInGuest(AgentConnection connection, const AgentAddress& agent, const GuestRun& run) {
  try {
    return status(run.terminal ? runInTerminal(std::move(connection), agent, run)
                               : runPlain(std::move(connection), run));
  } catch (const GuestTerminal::Left&) {
    complain("the connection was closed");
    return notRun;
  }
}

}  // namespace tervain::ctl
