#include "tervainctl/Mcp/Interruption.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <cerrno>

#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/System.h"

namespace tervain::mcp {

void Interruption::watch(const AgentConnection& connection) {
  const int fd = connection.pollEntry().fd;
  if (fd < 0) {
    return;  // it has ended already
  }
  UniqueFD own(fcntl(fd, F_DUPFD_CLOEXEC, 0));
  if (!own) {
    throw AgentError::posix("watching a connection", errno);
  }
  const std::lock_guard lock(mutex_);
  if (interrupted_) {
    shutdown(own.get(), SHUT_RDWR);
  }
  watched_.push_back(std::move(own));
}

void Interruption::interrupt() {
  const std::lock_guard lock(mutex_);
  interrupted_ = true;
  shutDown();
}

void Interruption::endWaits() {
  const std::lock_guard lock(mutex_);
  shutDown();
}

void Interruption::shutDown() {
  for (const UniqueFD& fd : watched_) {
    shutdown(fd.get(), SHUT_RDWR);
  }
}

bool Interruption::interrupted() const {
  const std::lock_guard lock(mutex_);
  return interrupted_;
}

Alarm::Alarm(Deadline moment, std::function<void()> ring)
    : thread_([this, moment, ring = std::move(ring)] {
        std::unique_lock lock(mutex_);
        if (!System::waitUntil(changed_, lock, moment, [this] { return done_; })) {
          rang_ = true;
          ring();
        }
      }) {}

Alarm::~Alarm() {
  {
    const std::lock_guard lock(mutex_);
    done_ = true;
  }
  changed_.notify_one();
  thread_.join();
}

bool Alarm::rang() const {
  const std::lock_guard lock(mutex_);
  return rang_;
}

}  // namespace tervain::mcp
