#pragma once

#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Command lines for the shells of guests, any that POSIX describes.
namespace tervain::GuestShell {

/// A word as the shell takes it for itself, whatever is in it.
std::string inQuotes(std::string_view word);

/// One word is a command line as it stands; several are a program and its arguments.
std::string commandLine(std::span<const std::string> words);

/// What a command finds when it starts.
struct Surroundings {
  std::optional<std::string> folder{};  // the agent's own, if there is none; empty: the home folder
  std::map<std::string, std::string> environment{};  // beside the agent's own
  std::optional<std::string> user{};  // who must be the agent's user, or it does not start
};

/// Whether a text can name a variable.
bool isVariable(std::string_view name);

/// The command in these surroundings. It ends with 255 and words where it can't have them.
std::string inSurroundings(std::string_view command, const Surroundings& surroundings);

/// The user's login shell.
std::string loginShell();

/// The server of the sftp protocol, wherever the guest has it. It ends with 127 where there is
/// none.
std::string sftpServer();

/// The size of a terminal.
struct Size {
  unsigned rows = 0;
  unsigned columns = 0;
  bool operator==(const Size&) const = default;
};

/// The command in a terminal of the guest's own making, on which it tells `marker`, a blank and
/// the terminal's path in a line before all else. Needs the program script in the guest.
std::string inTerminal(std::string_view command, std::string_view marker, std::optional<Size> size);

/// Changes the size of a terminal.
std::string resize(std::string_view terminal, Size size);

}  // namespace tervain::GuestShell
