#include <unistd.h>

#include <memory>

#include "VMAgentCore/IO.h"
#include "tervainctl/CommandLine.h"
#include "tervainctl/Commands.h"
#include "tervainctl/ShellWords.h"
#include "tervainctl/TimeLimit.h"

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

/// Ends the process when a command takes too long, as its reply would be taken for the next one's;
/// unless the user has set a limit for the whole session.
class CommandLimit {
 public:
  CommandLimit(const Invocation& invocation, const Call& session)
      : isOurs_(!session.arguments.contains("timeout") && !invocation.command.timesItself) {
    if (isOurs_) {
      endAfter(limitOf(invocation.command, invocation.arguments));
    }
  }
  ~CommandLimit() {
    if (isOurs_) {
      endAfter(noLimit);
    }
  }
  CommandLimit(const CommandLimit&) = delete;
  CommandLimit& operator=(const CommandLimit&) = delete;

 private:
  bool isOurs_;
};

/// Performs one command. A failure is the command's alone, unless nobody reads our output any more.
int performOne(AgentConnection& connection, const Call& session, const Invocation& invocation) {
  const Command& command = invocation.command;
  if (command.place == Place::alone) {
    const std::string name(command.name);
    complain(name + " doesn't work in a session; call tervainctl " + name + " by itself");
    return failed;
  }
  try {
    const CommandLimit limit(invocation, session);
    return std::get<Action>(actionOf(command))(
        connection, {.command = command, .arguments = invocation.arguments, .inSession = true});
  } catch (const OutputClosed&) {
    throw;
  } catch (const std::exception& error) {
    complain(error.what());
    return failed;
  }
}

int performLine(AgentConnection& connection, const Call& session, std::string_view line) {
  auto words = splitShellWords(line);
  if (!words) {
    complain("the line ends within quotes or behind a backslash: " + std::string(line));
    return failed;
  }
  if (words->empty()) {
    return 0;
  }
  const auto parsed = parseCommandLine(*std::move(words), Source::session);
  const int* status = std::get_if<int>(&parsed);
  return status ? *status : performOne(connection, session, std::get<Invocation>(parsed));
}

}  // namespace

int runSession(AgentConnection& connection, const Call& call) {
  InputLines lines;
  int status = 0;
  while (const auto line = lines.next()) {
    status = performLine(connection, call, *line) == 0 ? status : failed;
    if (connection.ended() || !connection.writable()) {
      complain("the agent closed the connection");
      return failed;
    }
  }
  return status;
}

}  // namespace tervain::ctl
