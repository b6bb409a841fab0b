#include <CLI/CLI.hpp>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <memory>

#include "VMAgentClient/RemoteCommand.h"
#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/IO.h"
#include "tervainctl/Commands.h"
#include "tervainctl/SignalPipe.h"

namespace tervain::ctl {
namespace {

/// Everything is quoted: bare, a word like "if" or "a=b" would mean something to the shell.
std::string shellQuoted(std::string_view word) {
  std::string text = "'";
  for (const char c : word) {
    if (c == '\'') {
      text += "'\\''";
    } else {
      text += c;
    }
  }
  return text + "'";
}

/// One word is a command line for the guest's shell; several are a program and its arguments.
std::string commandLine(const Words& words) {
  if (words.size() == 1) {
    return words.front();
  }
  std::string line;
  for (const std::string& word : words) {
    line.append(line.empty() ? "" : " ").append(shellQuoted(word));
  }
  return line;
}

/// Writes to a descriptor that may be slow to take it, such as a pager, and forwards signals
/// meanwhile. A ready descriptor takes PIPE_BUF bytes without making us wait.
void pass(int fd, std::string_view bytes, int signals, RemoteCommand& command) {
  while (!bytes.empty()) {
    std::array<pollfd, 2> entries{{{fd, POLLOUT, 0}, {signals, POLLIN, 0}}};
    waitForEvents(entries);
    if (entries[1].revents != 0) {
      command.forwardSignals();
    }
    if (entries[0].revents == 0) {
      continue;
    }
    const ssize_t n = write(fd, bytes.data(), std::min<std::size_t>(bytes.size(), PIPE_BUF));
    if (n >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(n));
    } else if (errno != EINTR && errno != EAGAIN) {
      throw AgentError::posix("writing the output", errno);
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

int exec(AgentConnection connection, const Words& words, int input) {
  const SignalPipe signals;
  RemoteCommand command(std::move(connection), commandLine(words));
  const auto passTo = [&](int fd) {
    return [&, fd](std::string_view bytes) { pass(fd, bytes, signals.readEnd(), command); };
  };
  return status(command.run({.input = input,
                             .signals = signals.readEnd(),
                             .onOutput = passTo(STDOUT_FILENO),
                             .onError = passTo(STDERR_FILENO)}));
}

}  // namespace

Action declareExec(CLI::App& options) {
  const auto noInput = std::make_shared<bool>(false);
  options.add_flag("-n,--no-input", *noInput, "Give the command no input, leave ours unread");
  options.footer(
      "One word behind -- is a command line for the guest's shell. Several are a program and its\n"
      "arguments, which arrive as they are given.\n"
      "\n"
      "Standard input, output and error are the command's; INT, TERM, HUP and QUIT are passed on\n"
      "to it. The exit status is its own, or 255 if it could not be run or was lost. Input that "
      "it\n"
      "does not read within a second of its arrival is dropped by the agent, and holds its output\n"
      "up; give a command that reads none --no-input.");
  return [noInput](AgentConnection& connection, const Call& call) {
    return exec(std::move(connection), call.words, *noInput ? -1 : STDIN_FILENO);
  };
}

}  // namespace tervain::ctl
