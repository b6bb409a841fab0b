#include "VMAgentClient/GuestShell.h"

#include <algorithm>

namespace tervain::GuestShell {
namespace {

std::string sttySize(Size size) {
  return "stty rows " + std::to_string(size.rows) + " cols " + std::to_string(size.columns);
}

constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz";
constexpr std::string_view digits = "0123456789";

}  // namespace

std::string inQuotes(std::string_view word) {
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

std::string commandLine(std::span<const std::string> words) {
  if (words.size() == 1) {
    return words.front();
  }
  std::string line;
  for (const std::string& word : words) {
    // Everything is quoted: bare, a word like "if" or "a=b" would mean something to the shell.
    line.append(line.empty() ? "" : " ").append(inQuotes(word));
  }
  return line;
}

bool isVariable(std::string_view name) {
  return !name.empty() && letters.find(name.front()) != std::string_view::npos &&
         std::all_of(name.begin(), name.end(), [](char c) {
           return letters.find(c) != std::string_view::npos ||
                  digits.find(c) != std::string_view::npos;
         });
}

std::string inSurroundings(std::string_view command, const Surroundings& surroundings) {
  std::string line;
  if (const auto& user = surroundings.user) {
    line += R"sh([ "$(id -un)" = )sh" + inQuotes(*user) +
            R"sh( ] || { echo "the agent runs as $(id -un)")sh" + inQuotes(", not as " + *user) +
            " >&2; exit 255; }\n";
  }
  if (const auto& folder = surroundings.folder) {
    // A folder is what it says: not the one before, nor one that CDPATH leads to.
    const bool plain = folder->starts_with('/') || folder->empty();
    line += folder->empty() ? "cd || cd /\n"
                            : "cd " + inQuotes((plain ? "" : "./") + *folder) + " || exit 255\n";
  }
  for (const auto& [name, value] : surroundings.environment) {
    line.append("export ").append(name).append("=").append(inQuotes(value)).append("\n");
  }
  return line.append(command);
}

std::string loginShell() {
  return R"(exec "${SHELL:-/bin/sh}" -l)";
}

std::string sftpServer() {
  return R"(for server in /usr/lib/openssh/sftp-server /usr/libexec/sftp-server \
  /usr/libexec/openssh/sftp-server /usr/lib/ssh/sftp-server /usr/lib/misc/sftp-server \
  /usr/local/libexec/sftp-server; do
  [ ! -x "$server" ] || exec "$server"
done
command -v sftp-server >/dev/null && exec sftp-server
echo 'the guest has no sftp-server' >&2
exit 127)";
}

std::string inTerminal(std::string_view command, std::string_view marker,
                       std::optional<Size> size) {
  // Another shell runs this: the user's, on behalf of script, hands on what a variable has, as
  // they agree on little else. The command's own is the agent's again.
  std::string inner = "stty sane 2>/dev/null; stty iutf8 2>/dev/null\n";
  inner += size ? sttySize(*size) + "\n" : "";
  inner.append("printf '%s %s\\n' ").append(marker).append(R"sh( "$(tty)")sh").append("\n");
  inner += R"(line=$TERVAIN_LINE
unset TERVAIN_LINE TERVAIN_TERMINAL
shell=/bin/zsh
[ -z "$TERVAIN_SHELL_SPOOL" ] || shell=/usr/local/bin/dulk
exec "$shell" -c "$line")";
  return "export TERVAIN_LINE=" + inQuotes(command) + " TERVAIN_TERMINAL=" + inQuotes(inner) + R"(
case $(script --help 2>&1) in
  *--return*) exec script -qfec 'exec /bin/sh -c "$TERVAIN_TERMINAL"' /dev/null ;;
  *-c*PROG*) exec script -qfc 'exec /bin/sh -c "$TERVAIN_TERMINAL"' /dev/null ;;
  *[Uu]sage*) exec script -q /dev/null /bin/sh -c "$TERVAIN_TERMINAL" ;;
esac
echo 'the guest lacks the program "script", which makes its terminals' >&2
exit 255)";
}

std::string resize(std::string_view terminal, Size size) {
  return sttySize(size) + " <" + inQuotes(terminal);
}

}  // namespace tervain::GuestShell
