#include "VMAgentCore/ExecSession.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
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
#include "VMAgentCore/Base64/Base64.h"
#include "VMAgentCore/Deadline.h"
#include "VMAgentCore/ExecFrames.h"
#include "VMAgentCore/ExecInput.h"
#include "VMAgentCore/ExecOutput.h"
#include "VMAgentCore/FatalError.h"
#include "VMAgentCore/GroupLeader.h"
#include "VMAgentCore/IO.h"
#include "VMAgentCore/ShellSpool.h"
#include "VMAgentCore/SpawnGroupLeader.h"
#include "VMAgentCore/System.h"

namespace tervain {
namespace {

namespace wire = AgentWire::Exec;
using std::chrono::milliseconds;

/// The longest wait of the pump: it bounds how late the end of the grace time is noticed, and the
/// command's exit where the system gives no descriptor that tells of it.
constexpr milliseconds pollTick{200};

bool isExecutableFile(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && access(path.c_str(), X_OK) == 0;
}

bool isTransient(int error) {
  return error == EINTR || error == EAGAIN;
}

struct StdioPipes {
  System::Pipe in = System::makePipe();
  System::Pipe out = System::makePipe();
  System::Pipe err = System::makePipe();
};

/// The loop of a running session. It waits in `poll` and nowhere else.
class Pump {
 public:
  /// Takes the agent's ends of the pipes.
  Pump(int host, LineSplitBuffer& lines, GroupLeader& child, StdioPipes& pipes, milliseconds grace)
      : host_(host),
        lines_(lines),
        child_(child),
        grace_(grace),
        input_(std::move(pipes.in.writeEnd)),
        streams_{{{std::move(pipes.out.readEnd), wire::stdout_},
                  {std::move(pipes.err.readEnd), wire::stderr_}}},
        output_(host) {}

  /// Until the host has been told of the command's end, or has gone.
  void run() {
    applyHostFrames();
    for (;;) {
      child_.poll();
      if (!ended_ && child_.exit() && drained()) {
        end();
      }
      if (ended_ && !output_.waiting()) {
        return;
      }
      if (!round()) {
        child_.signal(SIGKILL);
        return;
      }
    }
  }

 private:
  /// The read end of one of the command's output pipes.
  struct Stream {
    UniqueFD pipe;
    std::string_view tag;
  };

  /// Waits for something to happen, and deals with it. False when the host has gone.
  bool round() {
    // Entries with a negative descriptor are ignored.
    std::array<pollfd, 5> entries{{hostEntry(),
                                   input_.pollEntry(),
                                   streamEntry(streams_[0]),
                                   streamEntry(streams_[1]),
                                   {child_.exitWatch(), POLLIN, 0}}};
    const int ready = ::poll(entries.data(), entries.size(), static_cast<int>(pollTick.count()));
    if (ready < 0) {
      return isTransient(errno) || giveUp();
    }
    if (!serveHost(entries[0].revents)) {
      return false;
    }
    if (entries[1].revents != 0) {
      input_.flush();
    }
    if (entries[2].revents != 0) {
      forward(streams_[0]);
    }
    if (entries[3].revents != 0) {
      forward(streams_[1]);
    }
    return true;
  }

  /// While too much input waits, the host is not read from, but watched all the same.
  [[nodiscard]] pollfd hostEntry() const {
    const int reading = input_.full() ? System::peerLeft : POLLIN;
    const int writing = output_.waiting() ? POLLOUT : 0;
    return {host_, static_cast<short>(reading | writing), 0};
  }

  /// While output waits for the host, no more of it is read, which holds the command up. What waits
  /// is at most a frame of each stream: neither keeps the other from being read.
  [[nodiscard]] pollfd streamEntry(const Stream& stream) const {
    return {output_.waiting() ? -1 : stream.pipe.get(), POLLIN, 0};
  }

  /// False when the host has gone.
  bool serveHost(short events) {
    if ((events & POLLOUT) != 0) {
      output_.flush();
    }
    if (input_.full()) {
      return !System::peerHasLeft(host_);
    }
    return (events & ~POLLOUT) == 0 || readHost();
  }

  bool readHost() {
    const ssize_t n = read(host_, buffer_.get(), readSize);
    if (n <= 0) {
      return n < 0 && isTransient(errno);
    }
    lines_.append({buffer_.get(), static_cast<std::size_t>(n)});
    applyHostFrames();
    return true;
  }

  void forward(Stream& stream) {
    const ssize_t n = read(stream.pipe.get(), buffer_.get(), readSize);
    if (n > 0) {
      output_.send(stream.tag, {buffer_.get(), static_cast<std::size_t>(n)});
    } else if (n == 0 || !isTransient(errno)) {
      stream.pipe.reset();
    }
  }

  /// Whether the output that is left of an ended child has been sent, or waited for long enough.
  [[nodiscard]] bool drained() const {
    return (!streams_[0].pipe && !streams_[1].pipe) ||
           Clock::now() - child_.exit()->noticed > grace_;
  }

  /// Ends the traffic with the command; what is still to be done is to get rid of the last frames.
  void end() {
    for (Stream& stream : streams_) {
      forwardRest(stream);
    }
    input_.close();
    output_.sendExit(child_.exit() ? child_.exit()->code : GroupLeader::unknownCode);
    ended_ = true;
  }

  /// Sends what a pipe holds, and closes it: a slow host may have kept the command's last words in
  /// there for longer than the grace time.
  void forwardRest(Stream& stream) {
    int left = 0;
    if (stream.pipe && ioctl(stream.pipe.get(), FIONREAD, &left) != 0) {  // NOLINT(*-vararg)
      left = 0;
    }
    while (left > 0) {
      const auto wanted = std::min(static_cast<std::size_t>(left), readSize);
      const ssize_t n = readSome(stream.pipe.get(), {buffer_.get(), wanted});
      if (n <= 0) {
        break;
      }
      output_.send(stream.tag, {buffer_.get(), static_cast<std::size_t>(n)});
      left -= static_cast<int>(n);
    }
    stream.pipe.reset();
  }

  /// What to do when `poll` fails. False when there is nothing more that could be done.
  bool giveUp() {
    child_.signal(SIGKILL);
    child_.poll();
    if (ended_) {
      return false;
    }
    end();
    return true;
  }

  void applyHostFrames() {
    while (const auto line = lines_.next()) {
      if (!line->empty()) {
        handleHostFrame(*line);
      }
    }
    input_.flush();
  }

  /// What is not a frame, or not complete, is ignored.
  void handleHostFrame(std::string_view line) {
    if (auto input = ExecFrames::payload(line); input && input->tag == wire::stdin_) {
      input_.add(std::move(input->bytes));
      return;
    }
    const std::optional<Json> frame = parseMembers(line, AgentWire::hostMembers);
    const std::string* tag = frame ? stringMember(*frame, wire::tagKey) : nullptr;
    if (!tag) {
      return;
    }
    if (*tag == wire::stdin_) {
      const std::string* text = stringMember(*frame, wire::dataKey);
      input_.add((text ? decodeBase64(*text) : std::nullopt).value_or(""));
    } else if (*tag == wire::stdinEOF) {
      input_.end();
    } else if (*tag == wire::signal) {
      sendSignal(*frame);
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
    input_.flush();  // the command may have read what was sent before the signal
    child_.signal(static_cast<int>(*number));
  }

  int host_;
  LineSplitBuffer& lines_;
  GroupLeader& child_;
  milliseconds grace_;
  ExecInput input_;
  std::array<Stream, 2> streams_;
  ExecOutput output_;
  bool ended_ = false;
  std::unique_ptr<char[]> buffer_{new char[readSize]};
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
  Pump pump(fd_, lines_, *child, *pipes, milliseconds(std::max(graceMillis_, 0)));
  pipes.reset();  // closes the child's ends
  pump.run();
}

void ExecSession::fail(std::string_view message) const {
  writeAll(fd_, ExecFrames::error(message));
}

}  // namespace tervain
