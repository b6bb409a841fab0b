#include "TervainVMAgent/AgentListener.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <exception>
#include <new>
#include <string>
#include <system_error>
#include <thread>

#include "CVsock/cvsock.h"
#include "TervainVMAgent/ConnectionHandler.h"
#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/Log.h"

namespace tervain {
namespace {

/// How long to wait after a failed accept. What makes it fail (descriptors or threads exhausted)
/// passes only when connections end, and no event tells of that.
constexpr std::chrono::seconds retryPause{1};

int listenOn(std::uint32_t port) {
  const int result = tervain_vsock_listen(port, AgentListener::backlog);
  if (result < 0) {
    throw AgentError::posix("vsock listen(:" + std::to_string(port) + ")", -result);
  }
  return result;
}

void retryLater(int error) {
  agentLog("accept failed (errno ", Decimal(error), "); retrying");
  std::this_thread::sleep_for(retryPause);
}

/// Serves a connection on the calling thread. Running out of memory ends that connection only.
void serve(UniqueFD socket) {
  try {
    ConnectionHandler(std::move(socket)).run();
  } catch (const std::exception&) {
    // The handler has closed its socket and said so.
  }
}

/// Gives a connection a thread. Returns why that can't be done, or 0.
int start(UniqueFD socket) try {
  std::thread(serve, std::move(socket)).detach();
  return 0;
} catch (const std::system_error& error) {
  return error.code().value();
} catch (const std::bad_alloc&) {
  return ENOMEM;
}

}  // namespace

AgentListener::AgentListener(std::uint32_t port) : fd_(listenOn(port)) {}

AgentListener::AgentListener(UniqueFD socket) : fd_(std::move(socket)) {
  // Whoever hands a socket over may have used it with a loop of its own; this one waits in accept.
  fcntl(fd_.get(), F_SETFL, fcntl(fd_.get(), F_GETFL) & ~O_NONBLOCK);
}

void AgentListener::run() {
  for (;;) {
    UniqueFD connection(accept(fd_.get(), nullptr, nullptr));
    if (!connection) {
      if (errno != EINTR) {
        retryLater(errno);
      }
      continue;
    }
    const int fd = connection.get();
    fcntl(fd, F_SETFD, FD_CLOEXEC);
    logConnected(fd);
    if (const int error = start(std::move(connection)); error != 0) {
      logDisconnected(fd);
      retryLater(error);
    }
  }
}

}  // namespace tervain
