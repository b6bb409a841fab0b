#include <CLI/CLI.hpp>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/IO.h"
#include "tervainctl/CommandLine.h"
#include "tervainctl/ShellWords.h"

namespace tervain::ctl {
namespace {

/// The lines of standard input as they come. The last one may lack its line feed.
class InputLines {
 public:
  /// The next line, or nothing at the end. The view lives until the next call.
  std::optional<std::string_view> next() {
    auto line = lines_.next();
    while (!line && open_) {
      read();
      line = lines_.next();
    }
    return line;
  }

 private:
  void read() {
    const ssize_t n = readSome(STDIN_FILENO, {buffer_.get(), readSize});
    if (n > 0) {
      lines_.append({buffer_.get(), static_cast<std::size_t>(n)});
    } else {
      open_ = false;
      lines_.append("\n");
    }
  }

  LineSplitBuffer lines_;
  std::unique_ptr<char[]> buffer_{new char[readSize]};
  bool open_ = true;
};

/// Performs one command. A failure is the command's alone, unless nobody reads our output any more.
int performOne(AgentConnection& connection, const Command& command, const Action& action) {
  if (command.place == Place::alone) {
    complain(std::string(command.name) + " doesn't work in a session; call tervainctl " +
             command.name + " by itself");
    return failed;
  }
  try {
    return action(connection, {.words = {}, .inSession = true, .agent = {}});
  } catch (const AgentError& error) {
    if (error.code() == EPIPE) {
      throw;
    }
    complain(error.what());
    return failed;
  }
}

int performLine(AgentConnection& connection, std::string_view line) {
  auto words = splitShellWords(line);
  if (!words) {
    complain("the line ends within quotes or behind a backslash: " + std::string(line));
    return failed;
  }
  if (words->empty()) {
    return 0;
  }
  CLI::App app("Commands of a session, one a line.", "");
  return runCommandLine(app, *std::move(words),
                        [&](const Command& command, const Action& action, const Words&) {
                          return performOne(connection, command, action);
                        });
}

int runSession(AgentConnection& connection) {
  InputLines lines;
  int status = 0;
  while (const auto line = lines.next()) {
    status = performLine(connection, *line) == 0 ? status : failed;
    if (connection.ended() || !connection.writable()) {
      complain("the agent closed the connection");
      return failed;
    }
  }
  return status;
}

}  // namespace

Action declareSession(CLI::App& options) {
  options.footer(
      "Commands are written as behind tervainctl, with quotes and backslashes as in a shell. "
      "Blank\n"
      "lines and lines that begin with # are skipped. Refs of elements live until the next tree. "
      "A\n"
      "command that fails does not end the session; its exit status is 1 then, and 0 otherwise.");
  return [](AgentConnection& connection, const Call&) { return runSession(connection); };
}

}  // namespace tervain::ctl
