#include "Platform/Linux/X11.h"

#include <poll.h>
#include <xcb/randr.h>
#include <xcb/res.h>
#include <xcb/xcbext.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace tervain::X11 {

/// The connections that nobody uses at the moment, and the making of new ones.
///
/// Connecting can hang for as long as a server does, and nothing can interrupt it. So it happens on
/// a thread of its own, one attempt at a time, and users wait for it only so long. An attempt that
/// succeeds late leaves its connection to the next user.
class Session::Pool {
 public:
  static Pool& shared() {
    // Never destroyed: an attempt may still be under way when the process ends.
    static Pool& pool = *new Pool;
    return pool;
  }

  Connection take(Clock::time_point deadline) {
    std::unique_lock lock(mutex_);
    for (bool triedMyself = false;;) {
      if (Connection connection = takeIdle()) {
        return connection;
      }
      if (triedMyself && !connecting_) {
        return nullptr;
      }
      if (!connecting_) {
        triedMyself = startConnecting();
        if (!triedMyself) {
          return nullptr;
        }
      }
      // An attempt that has outlived its time holds nobody up any longer.
      const auto limit = std::min(deadline, attemptStarted_ + lookLimit);
      if (!attemptEnded_.wait_until(lock, limit, [this] { return !connecting_; })) {
        return nullptr;
      }
    }
  }

  void giveBack(Connection connection) {
    const std::lock_guard lock(mutex_);
    if (idle_.size() < maxIdle) {
      idle_.push_back(std::move(connection));
    }
  }

 private:
  static constexpr std::size_t maxIdle = 4;

  /// An idle connection whose server is still there. What has arrived on it since is thrown away.
  Connection takeIdle() {
    while (!idle_.empty()) {
      Connection connection = std::move(idle_.back());
      idle_.pop_back();
      while (const Reply<xcb_generic_event_t> event{xcb_poll_for_event(connection.get())}) {
      }
      if (xcb_connection_has_error(connection.get()) == 0) {
        return connection;
      }
    }
    return nullptr;
  }

  bool startConnecting() {
    try {
      std::thread([this] { finishConnecting(connect()); }).detach();
    } catch (const std::system_error&) {
      return false;
    }
    connecting_ = true;
    attemptStarted_ = Clock::now();
    return true;
  }

  /// Connects and asks for the extensions in use, which xcb would otherwise do, without a time
  /// limit, when the first request of each is sent.
  static Connection connect() {
    Connection connection(xcb_connect(nullptr, nullptr));
    if (xcb_connection_has_error(connection.get()) != 0) {
      return nullptr;
    }
    const Reply<xcb_randr_query_version_reply_t> version(xcb_randr_query_version_reply(
        connection.get(), xcb_randr_query_version(connection.get(), 1, 5), nullptr));
    const Reply<xcb_res_query_version_reply_t> resources(xcb_res_query_version_reply(
        connection.get(), xcb_res_query_version(connection.get(), 1, 2), nullptr));
    return connection;
  }

  void finishConnecting(Connection connection) {
    const std::lock_guard lock(mutex_);
    connecting_ = false;
    if (connection) {
      idle_.push_back(std::move(connection));
    }
    attemptEnded_.notify_all();
  }

  std::mutex mutex_;
  std::condition_variable attemptEnded_;
  std::vector<Connection> idle_;
  bool connecting_ = false;
  Clock::time_point attemptStarted_;
};

std::optional<Session> Session::open(Clock::time_point deadline) {
  Connection connection = Pool::shared().take(deadline);
  if (!connection) {
    return std::nullopt;
  }
  return Session(std::move(connection), deadline);
}

Session::Session(Connection connection, Clock::time_point deadline)
    : connection_(std::move(connection)), deadline_(deadline) {}

Session::~Session() {
  // What the server may still answer must not reach the next user.
  if (connection_ && !expired_ && xcb_connection_has_error(connection_.get()) == 0) {
    Pool::shared().giveBack(std::move(connection_));
  }
}

const xcb_screen_t& Session::screen() const {
  return *xcb_setup_roots_iterator(xcb_get_setup(connection_.get())).data;
}

void* Session::awaitReply(unsigned int sequence) {
  while (!expired_ && xcb_flush(connection_.get()) > 0) {
    void* reply = nullptr;
    xcb_generic_error_t* error = nullptr;
    if (xcb_poll_for_reply(connection_.get(), sequence, &reply, &error) != 0) {
      const Reply<xcb_generic_error_t> refusal(error);
      return reply;
    }
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline_ - Clock::now()).count();
    pollfd socket{xcb_get_file_descriptor(connection_.get()), POLLIN, 0};
    expired_ = left <= 0 || poll(&socket, 1, static_cast<int>(left)) == 0;
  }
  return nullptr;
}

}  // namespace tervain::X11
