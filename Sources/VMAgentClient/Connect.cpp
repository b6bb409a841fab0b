#include "VMAgentClient/Connect.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <optional>

#include "CVsock/cvsock.h"
#include "VMAgentClient/ProtocolError.h"
#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/IO.h"
#include "VMAgentCore/SpawnGroupLeader.h"

namespace tervain {
namespace {

using std::chrono::milliseconds;

/// A short name for a path that a socket's address has no room for: a symbolic link in a folder
/// that nobody else can look into. It is needed while connecting only.
class ShortName {
 public:
  explicit ShortName(const std::string& path) {
    const std::string target = path.front() == '/' ? path : workingFolder() + "/" + path;
    if (!mkdtemp(folder_.data())) {
      throw AgentError::posix("making a short name for " + path, errno);
    }
    if (symlink(target.c_str(), this->path().c_str()) != 0) {
      const int failed = errno;
      rmdir(folder_.c_str());
      throw AgentError::posix("making a short name for " + path, failed);
    }
  }
  ~ShortName() {
    unlink(path().c_str());
    rmdir(folder_.c_str());
  }
  ShortName(const ShortName&) = delete;
  ShortName& operator=(const ShortName&) = delete;

  [[nodiscard]] std::string path() const { return folder_ + "/s"; }

 private:
  static std::string workingFolder() {
    const std::unique_ptr<char, decltype(&std::free)> folder(getcwd(nullptr, 0), std::free);
    return folder ? folder.get() : ".";
  }

  std::string folder_ = "/tmp/tervain.XXXXXX";  // TMPDIR may be too long itself
};

void setSendLimit(int fd, milliseconds limit) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(limit);
  timeval time{};
  time.tv_sec = static_cast<decltype(time.tv_sec)>(seconds.count());
  time.tv_usec =
      static_cast<decltype(time.tv_usec)>(std::chrono::microseconds(limit - seconds).count());
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
}

/// Gives a descriptor or a negated errno value, like its counterpart for vsock.
int connectUnix(const std::string& path, milliseconds limit) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::optional<ShortName> link;
  if (path.size() >= sizeof address.sun_path) {
    link.emplace(path);
  }
  const std::string name = link ? link->path() : path;
  name.copy(&address.sun_path[0], name.size());
  UniqueFD fd(socket(AF_UNIX, SOCK_STREAM, 0));
  if (!fd) {
    return -errno;
  }
  fcntl(fd.get(), F_SETFD, FD_CLOEXEC);
  setSendLimit(fd.get(), limit);  // on Linux a full queue makes connect wait
  if (connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return errno == EAGAIN ? -ETIMEDOUT : -errno;
  }
  setSendLimit(fd.get(), milliseconds(0));
  return fd.release();
}

/// Gives a descriptor or a negated errno value.
int connectVsock(const VsockAddress& address) {
  if (address.cid) {
    return tervain_vsock_connect(*address.cid, address.port);
  }
  std::uint32_t own = 0;
  const int failed = tervain_vsock_local_cid(&own);
  return failed < 0 ? failed : tervain_vsock_connect(own, address.port);
}

/// Asks for a port in the words that hypervisors agree on, and waits for "OK". What comes behind
/// that line is the agent's, so it is read byte by byte.
void requestPort(int fd, const MuxAddress& address, milliseconds limit) {
  const Deadline deadline = after(limit);
  writeAll(fd, "CONNECT " + std::to_string(address.port) + "\n");
  std::string line;
  constexpr std::size_t longest = 64;
  while (!line.ends_with('\n') && line.size() < longest) {
    pollfd entry{fd, POLLIN, 0};
    if (!waitForEvents({&entry, 1}, deadline)) {
      throw ProtocolError(toString(address) + " does not answer \"CONNECT\"");
    }
    char byte = 0;
    if (readSome(fd, {&byte, 1}) <= 0) {
      break;
    }
    line += byte;
  }
  if (!line.starts_with("OK")) {
    throw ProtocolError(toString(address) +
                        " refuses the connection: nothing listens on that port of the guest");
  }
}

/// Starts a program with one end of a connection as its standard input and output. It is no child
/// of this process, which thus has none to reap, and Ctrl-C is not for it.
UniqueFD connectProgram(const std::string& command) {
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) != 0) {
    throw AgentError::posix("socketpair", errno);
  }
  UniqueFD ours(ends[0]);
  const UniqueFD theirs(ends[1]);
  fcntl(ours.get(), F_SETFD, FD_CLOEXEC);
  fcntl(theirs.get(), F_SETFD, FD_CLOEXEC);

  const std::array<std::string, 3> arguments{"-c", R"(exec 3<&0; eval "$0" <&3 3<&- &)", command};
  reap(spawnInOurGroup("/bin/sh", arguments, processEnvironment(), theirs.get(), theirs.get(),
                       STDERR_FILENO));
  return ours;
}

}  // namespace

UniqueFD connectTo(const AgentAddress& address, milliseconds limit) {
  if (const auto* program = std::get_if<ProgramAddress>(&address)) {
    return connectProgram(program->command);
  }
  const auto* local = std::get_if<UnixAddress>(&address);
  const auto* mux = std::get_if<MuxAddress>(&address);
  const auto* vsock = std::get_if<VsockAddress>(&address);
  const int connected =
      vsock ? connectVsock(*vsock) : connectUnix(mux ? mux->path : local->path, limit);
  if (connected < 0) {
    throw AgentError::posix("connecting to " + toString(address), -connected);
  }
  UniqueFD fd(connected);
  if (mux) {
    requestPort(fd.get(), *mux, limit);
  }
  return fd;
}

void awaitAnswer(AgentConnection& connection, milliseconds limit) {
  // An operation that does not exist takes nothing of the desktop, and any answer will do.
  connection.send(Json{{"op", "hello"}});
  if (!connection.waitForLine(after(limit))) {
    throw ProtocolError(connection.ended() ? "the agent closed the connection without an answer"
                                           : "the agent takes connections, but does not answer");
  }
}

}  // namespace tervain
