#include "tervainctl/Terminal.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>

#include "VMAgentClient/Connect.h"
#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/AgentWire.h"
#include "VMAgentCore/IO.h"

namespace tervain::ctl {
namespace {

termios usual{};
std::atomic<bool> isRaw = false;

/// How long a new size may take to arrive, and so how long an agent that does not react can hold up
/// our end.
constexpr std::chrono::milliseconds sizeLimit{2000};

constexpr char changed = 'c';
constexpr char ended = 'e';
std::atomic<int> writeEnd = -1;

void handleChange(int /*number*/) {
  const int saved = errno;
  // A full pipe has a change on its way already.
  [[maybe_unused]] const ssize_t written = write(writeEnd, &changed, 1);
  errno = saved;
}

/// Lets the signal end the process as it would have, on a terminal that is as it was.
void restoreAndEnd(int number) {
  RawTerminal::restore();
  std::signal(number, SIG_DFL);
  std::raise(number);
}

}  // namespace

std::optional<GuestShell::Size> terminalSize() {
  winsize size{};
  if (ioctl(STDIN_FILENO, TIOCGWINSZ, &size) != 0 ||  // NOLINT(*-vararg)
      size.ws_row == 0 || size.ws_col == 0) {
    return std::nullopt;
  }
  return GuestShell::Size{size.ws_row, size.ws_col};
}

RawTerminal::RawTerminal() {
  if (tcgetattr(STDIN_FILENO, &usual) != 0) {
    throw AgentError::posix("reading the terminal's settings", errno);
  }
  termios raw = usual;
  cfmakeraw(&raw);
  for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
    if (std::signal(number, restoreAndEnd) == SIG_IGN) {
      std::signal(number, SIG_IGN);
    }
  }
  isRaw = true;
  if (tcsetattr(STDIN_FILENO, TCSADRAIN, &raw) != 0) {
    isRaw = false;
    throw AgentError::posix("changing the terminal's settings", errno);
  }
}

void RawTerminal::restore() {
  if (isRaw.exchange(false)) {
    tcsetattr(STDIN_FILENO, TCSADRAIN, &usual);
  }
}

WindowSize::WindowSize(AgentAddress agent, std::optional<GuestShell::Size> sent)
    : agent_(std::move(agent)), sent_(sent) {
  fcntl(pipe_.writeEnd.get(), F_SETFL, O_NONBLOCK);
  writeEnd = pipe_.writeEnd.get();
  // Signals are for the main thread, which may be waiting in a call that they have to interrupt.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &before);
  thread_ = std::thread([this] { run(); });
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  struct sigaction action {};
  action.sa_handler = handleChange;
  action.sa_flags = SA_RESTART;
  sigaction(SIGWINCH, &action, nullptr);
}

WindowSize::~WindowSize() {
  std::signal(SIGWINCH, SIG_DFL);
  writeAll(pipe_.writeEnd.get(), {&ended, 1});
  thread_.join();
  writeEnd = -1;
}

void WindowSize::setTerminal(std::string path) {
  {
    const std::lock_guard lock(mutex_);
    terminal_ = std::move(path);
  }
  handleChange(SIGWINCH);
}

void WindowSize::run() {
  char byte = 0;
  while (readSome(pipe_.readEnd.get(), {&byte, 1}) > 0 && byte != ended) {
    try {
      sendNew();
    } catch (const std::exception&) {
      // The next change may get through. The command's own connection has more to say.
    }
  }
}

void WindowSize::sendNew() {
  std::string terminal;
  {
    const std::lock_guard lock(mutex_);
    terminal = terminal_;
  }
  const auto size = terminalSize();
  if (!terminal.starts_with('/') || !size || size == sent_) {
    return;
  }
  AgentConnection connection(connectTo(agent_, sizeLimit));
  connection.send(Json{{"op", AgentWire::Exec::op},
                       {AgentWire::Exec::commandKey, GuestShell::resize(terminal, *size)}});
  const auto deadline = after(sizeLimit);
  while (connection.waitForLine(deadline)) {
  }
  sent_ = size;
}

}  // namespace tervain::ctl
