#include "VMAgentClient/Clipboard.h"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <optional>
#include <utility>

#include "VMAgentClient/ProtocolError.h"
#include "VMAgentClient/Refusal.h"
#include "VMAgentClient/RemoteCommand.h"
#include "VMAgentCore/AgentError.h"

namespace tervain {
namespace {

// For sh, whatever shell the agent has. On macOS the locale decides how the text is encoded, and
// this one is always there. No single quotes in either.

constexpr std::string_view get = R"(exec /bin/sh -c '
has() { command -v "$1" >/dev/null 2>&1; }
if has pbpaste; then LC_ALL=en_US.UTF-8 exec pbpaste; fi
if [ -n "$WAYLAND_DISPLAY" ] && has wl-paste; then exec wl-paste --no-newline --type text; fi
if has xclip; then exec xclip -selection clipboard -o; fi
if has xsel; then exec xsel --clipboard --output; fi
echo "the guest has none of pbpaste, wl-paste, xclip and xsel" >&2
exit 127')";

/// On Linux the program that sets the clipboard lives on to serve it. It must hold no pipe of ours,
/// or the command would not seem to end.
constexpr std::string_view set = R"(exec /bin/sh -c '
has() { command -v "$1" >/dev/null 2>&1; }
if has pbcopy; then LC_ALL=en_US.UTF-8 exec pbcopy; fi
if [ -n "$WAYLAND_DISPLAY" ] && has wl-copy; then
  set -- wl-copy --type "text/plain;charset=utf-8"
elif has xclip; then
  set -- xclip -selection clipboard -i
elif has xsel; then
  set -- xsel --clipboard --input
else
  echo "the guest has none of pbcopy, wl-copy, xclip and xsel" >&2
  exit 127
fi
errors=$(mktemp) || exit 1
"$@" >/dev/null 2>"$errors"
status=$?
cat "$errors" >&2
rm -f "$errors"
exit $status')";

std::string run(AgentConnection connection, std::string_view command, int input) {
  std::string output;
  std::string errors;
  RemoteCommand remote(std::move(connection), command);
  const auto result =
      remote.run({.input = input,
                  .onOutput = [&output](std::string_view bytes) { output += bytes; },
                  .onError = [&errors](std::string_view bytes) { errors += bytes; }});
  if (const auto* refused = std::get_if<RemoteCommand::Refused>(&result)) {
    throw Refusal(refused->message);
  }
  const auto* exited = std::get_if<RemoteCommand::Exited>(&result);
  if (!exited) {
    throw ProtocolError("the connection was lost before the clipboard's command ended");
  }
  if (exited->code != 0) {
    errors.erase(errors.find_last_not_of('\n') + 1);
    throw Refusal(errors.empty()
                      ? "the clipboard's command ended with status " + std::to_string(exited->code)
                      : errors);
  }
  return output;
}

}  // namespace

std::string clipboardText(AgentConnection connection) {
  return run(std::move(connection), get, -1);
}

void setClipboard(AgentConnection connection, std::string_view text) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), &std::fclose);
  if (!file || std::fwrite(text.data(), 1, text.size(), file.get()) != text.size() ||
      std::fflush(file.get()) != 0 || std::fseek(file.get(), 0, SEEK_SET) != 0) {
    throw AgentError::posix("keeping the text", errno);
  }
  run(std::move(connection), set, fileno(file.get()));
}

}  // namespace tervain
