#include "VMAgentCore/ExecSession.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <limits>
#include <memory>

#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/AgentWire.h"
#include "VMAgentCore/Base64.h"
#include "VMAgentCore/ExecFrames.h"
#include "VMAgentCore/FatalError.h"
#include "VMAgentCore/IO.h"
#include "VMAgentCore/ShellSpool.h"
#include "VMAgentCore/SpawnGroupLeader.h"
#include "VMAgentCore/System.h"

namespace tervain {
namespace {

namespace wire = AgentWire::Exec;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// The longest wait of the pump: it bounds how late the end of the grace time is noticed, and the
/// command's exit where the system gives no descriptor that tells of it.
constexpr milliseconds pollTick{200};

/// The unit in which `writeBounded` counts its waits.
constexpr milliseconds writeWait{2};

bool isExecutableFile(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && access(path.c_str(), X_OK) == 0;
}

bool isTransient(int error) {
  return error == EINTR || error == EAGAIN;
}

int exitCode(int waitStatus) {
  return WIFSIGNALED(waitStatus) ? 128 + WTERMSIG(waitStatus) : WEXITSTATUS(waitStatus);
}

/// The exit code of a child that could not be reaped.
constexpr int unknownCode = -1;

/// A child process that leads a group of its own. Goes down with its owner: a child that has not
/// been reaped by then is killed, with its group, and waited for.
class GroupLeader {
 public:
  explicit GroupLeader(pid_t pid) : pid_(pid), exitWatch_(System::watchExit(pid)) {}
  GroupLeader(const GroupLeader&) = delete;
  GroupLeader& operator=(const GroupLeader&) = delete;
  ~GroupLeader() {
    if (!exit_) {
      signal(SIGKILL);
      wait(0);
    }
  }

  struct Exit {
    int code;
    Clock::time_point time;
  };

  /// How and when the child ended, once it is known to have.
  [[nodiscard]] const std::optional<Exit>& exit() const { return exit_; }

  /// Readable once the child has ended; -1 once that is known, or where nothing can tell.
  [[nodiscard]] int exitWatch() const { return exitWatch_.get(); }

  /// Reaps the child if it has ended.
  void poll() {
    if (!exit_) {
      wait(WNOHANG);
    }
  }

  /// Signals the whole group, or else the child alone. A child that was reaped is left out: its
  /// number may be another process's by now.
  void signal(int number) const {
    if (kill(-pid_, number) != 0 && !exit_) {
      kill(pid_, number);
    }
  }

 private:
  void wait(int options) {
    int status = 0;
    pid_t result = 0;
    do {
      result = waitpid(pid_, &status, options);
    } while (result < 0 && errno == EINTR);
    if (result != 0) {
      exit_ = Exit{result == pid_ ? exitCode(status) : unknownCode, Clock::now()};
      exitWatch_.reset();
    }
  }

  pid_t pid_;
  UniqueFD exitWatch_;
  std::optional<Exit> exit_;
};

/// The agent's ends of the command's standard streams.
struct Streams {
  UniqueFD in;
  UniqueFD out;
  UniqueFD err;
};

struct StdioPipes {
  System::Pipe in = System::makePipe();
  System::Pipe out = System::makePipe();
  System::Pipe err = System::makePipe();
};

/// The loop of a running session.
class Pump {
 public:
  Pump(int host, LineSplitBuffer& lines, GroupLeader& child, Streams streams, milliseconds grace)
      : host_(host), lines_(lines), child_(child), streams_(std::move(streams)), grace_(grace) {
    makeInputNonBlocking();
    System::suppressSigpipe(streams_.in.get());
  }

  void run() {
    applyHostFrames();
    State state = State::running;
    while (state == State::running) {
      state = round();
    }
    streams_ = {};
    if (state == State::finished) {
      child_.poll();
      writeAll(host_, ExecFrames::exit(child_.exit() ? child_.exit()->code : unknownCode));
    }
  }

 private:
  enum class State { running, finished, hostGone };

  /// Or closes it: a command that does not read must not hold the session.
  void makeInputNonBlocking() {
    const int fd = streams_.in.get();
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0) {
      streams_.in.reset();
    }
  }

  State round() {
    child_.poll();
    if (child_.exit() && drained()) {
      return State::finished;
    }
    // Entries with a negative descriptor are ignored.
    std::array<pollfd, 4> entries{{{host_, POLLIN, 0},
                                   {streams_.out.get(), POLLIN, 0},
                                   {streams_.err.get(), POLLIN, 0},
                                   {child_.exitWatch(), POLLIN, 0}}};
    const int ready = ::poll(entries.data(), entries.size(), static_cast<int>(pollTick.count()));
    if (ready < 0) {
      if (isTransient(errno)) {
        return State::running;
      }
      child_.signal(SIGKILL);
      return State::finished;
    }
    // Output first: a command whose output pipe is full reads no input, and to wait for it to do so
    // with its output unread would lose the input.
    if (entries[1].revents != 0) {
      forward(streams_.out, wire::stdout_);
    }
    if (entries[2].revents != 0) {
      forward(streams_.err, wire::stderr_);
    }
    if (entries[0].revents != 0 && !readHost()) {
      child_.signal(SIGKILL);
      return State::hostGone;
    }
    return State::running;
  }

  /// Whether the output that is left of an ended child has been sent, or waited for long enough.
  [[nodiscard]] bool drained() const {
    return (!streams_.out && !streams_.err) || Clock::now() - child_.exit()->time > grace_;
  }

  /// False when the host has gone.
  bool readHost() {
    const ssize_t n = read(host_, buffer_.get(), readSize);
    if (n <= 0) {
      return n < 0 && isTransient(errno);
    }
    lines_.append({buffer_.get(), static_cast<std::size_t>(n)});
    applyHostFrames();
    return true;
  }

  void forward(UniqueFD& stream, std::string_view tag) {
    const ssize_t n = read(stream.get(), buffer_.get(), readSize);
    if (n > 0) {
      ExecFrames::output(frame_, tag, {buffer_.get(), static_cast<std::size_t>(n)});
      // A host that can't be written to is noticed when it is read from.
      writeAll(host_, frame_);
    } else if (n == 0 || !isTransient(errno)) {
      stream.reset();
    }
  }

  void applyHostFrames() {
    while (const auto line = lines_.next()) {
      if (!line->empty()) {
        handleHostFrame(*line);
      }
    }
  }

  /// What is not a frame, or not complete, is ignored.
  void handleHostFrame(std::string_view line) {
    if (const auto input = ExecFrames::payload(line); input && input->tag == wire::stdin_) {
      feed(input->bytes);
      return;
    }
    const std::optional<Json> frame = parseObject(line);
    const std::string* tag = frame ? stringMember(*frame, wire::tagKey) : nullptr;
    if (!tag) {
      return;
    }
    if (*tag == wire::stdin_) {
      const std::string* text = stringMember(*frame, wire::dataKey);
      feed((text ? decodeBase64(*text) : std::nullopt).value_or(""));
    } else if (*tag == wire::stdinEOF) {
      streams_.in.reset();
    } else if (*tag == wire::signal) {
      sendSignal(*frame);
    }
  }

  void feed(std::string_view bytes) {
    if (streams_.in) {
      ExecSession::writeBounded(streams_.in.get(), bytes, ExecSession::stdinRetries);
    }
  }

  void sendSignal(const Json& frame) {
    const auto number = integerMember(frame, wire::signalKey);
    if (!number) {
      return;
    }
    if (*number < std::numeric_limits<int>::min() || *number > std::numeric_limits<int>::max()) {
      fatalError("a host's signal number does not fit 32 bits");
    }
    child_.signal(static_cast<int>(*number));
  }

  int host_;
  LineSplitBuffer& lines_;
  GroupLeader& child_;
  Streams streams_;
  milliseconds grace_;
  std::unique_ptr<char[]> buffer_{new char[readSize]};
  std::string frame_;
};

}  // namespace

const std::string& ExecSession::dulkMissingMessage() {
  static const std::string message =
      "dulk is not installed in this guest (" + std::string(defaultDulkPath) +
      ") — dulk is the required agent shell in every virtualized environment (docs/DULK.md §7.5), "
      "so the exec surface refuses to run without it. Rebuild the macOS VM base image so "
      "provisioning installs it.";
  return message;
}

std::optional<ExecSession::Invocation> ExecSession::shellInvocation(
    const std::string& command, const std::string& dulkPath, const Environment& environment,
    const std::function<bool(const std::string&)>& isExecutable) {
  const auto disabled = environment.find("TERVAIN_DULK_DISABLE");
  if (disabled != environment.end() && disabled->second == "1") {
    return Invocation{std::string(fallbackShellPath), {"-c", command}, environment};
  }
  if (!isExecutable(dulkPath)) {
    return std::nullopt;
  }
  Invocation invocation{dulkPath, {"-lc", command}, environment};
  invocation.env[std::string(ShellSpool::spoolEnvKey)] = ShellSpool::defaultDir();
  invocation.env.emplace(ShellSpool::captureEnvKey, "tap");
  return invocation;
}

void ExecSession::writeBounded(int fd, std::string_view data, int retries) {
  Clock::duration waited{};
  while (!data.empty()) {
    const ssize_t n = write(fd, data.data(), data.size());
    if (n > 0) {
      data.remove_prefix(static_cast<std::size_t>(n));
      continue;
    }
    if (n == 0 || !isTransient(errno) || waited >= retries * writeWait) {
      return;
    }
    pollfd room{fd, POLLOUT, 0};
    const Clock::time_point before = Clock::now();
    ::poll(&room, 1, static_cast<int>(writeWait.count()));
    waited += Clock::now() - before;
  }
}

ExecSession::ExecSession(int fd, LineSplitBuffer buffered, std::string dulkPath,
                         int pipeGraceMillis)
    : fd_(fd),
      lines_(std::move(buffered)),
      dulkPath_(std::move(dulkPath)),
      graceMillis_(pipeGraceMillis) {
  System::suppressSigpipe(fd_);
}

void ExecSession::run(const Json& request) {
  const std::string* command = stringMember(request, wire::commandKey);
  if (!command) {
    return fail("exec requires a \"command\" string");
  }
  const auto invocation =
      shellInvocation(*command, dulkPath_, processEnvironment(), isExecutableFile);
  if (!invocation) {
    return fail(dulkMissingMessage());
  }
  std::optional<StdioPipes> pipes;
  try {
    pipes.emplace();
  } catch (const AgentError& error) {
    return fail("could not allocate stdio pipes (errno " + std::to_string(error.code()) + ")");
  }
  std::optional<GroupLeader> child;
  try {
    child.emplace(spawnGroupLeader(invocation->path, invocation->args, invocation->env,
                                   pipes->in.readEnd.get(), pipes->out.writeEnd.get(),
                                   pipes->err.writeEnd.get()));
  } catch (const AgentError& error) {
    return fail("could not launch the command (posix_spawn errno " + std::to_string(error.code()) +
                ")");
  }
  Streams streams{std::move(pipes->in.writeEnd), std::move(pipes->out.readEnd),
                  std::move(pipes->err.readEnd)};
  pipes.reset();  // closes the child's ends
  Pump(fd_, lines_, *child, std::move(streams), milliseconds(std::max(graceMillis_, 0))).run();
}

void ExecSession::fail(std::string_view message) const {
  writeAll(fd_, ExecFrames::error(message));
}

}  // namespace tervain
