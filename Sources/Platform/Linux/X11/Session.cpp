#include "Platform/Linux/X11/Session.h"

#include <poll.h>
#include <xcb/xcbext.h>
#include <xcb/xtest.h>

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/IO.h"
#include "VMAgentCore/NeverDestroyed.h"

namespace tervain::Linux::X11 {
namespace {

/// The extensions that sessions use.
xcb_extension_t* const extensionsInUse[] = {&xcb_randr_id, &xcb_res_id,    &xcb_shm_id,
                                            &xcb_test_id,  &xcb_xfixes_id, &xcb_xkb_id};

/// Throws away what has arrived. False when the server has gone.
bool drain(xcb_connection_t* connection) {
  while (const Reply<xcb_generic_event_t> event{xcb_poll_for_event(connection)}) {
  }
  return xcb_connection_has_error(connection) == 0;
}

}  // namespace

/// The connections that nobody uses at the moment, and the making of new ones.
///
/// Connecting can hang for as long as a server does, and nothing can interrupt it. So it happens on
/// a thread of its own, one attempt at a time, and users wait for it only so long. An attempt that
/// succeeds late leaves its connection to the next user.
class Session::Pool {
 public:
  static Pool& shared() {
    static NeverDestroyed<Pool> pool;  // an attempt may be under way when the process ends
    return *pool;
  }

  std::variant<Connection, OpenFailure> take(Deadline deadline) {
    if (const char* display = std::getenv("DISPLAY"); !display || !*display) {
      return OpenFailure::noServer;
    }
    std::unique_lock lock(mutex_);
    for (;;) {
      if (Connection connection = takeIdle()) {
        return connection;
      }
      const bool mine = !connecting_;
      if (mine && !startConnecting()) {
        return OpenFailure::noServer;
      }
      // An attempt that has outlived its time holds nobody up any longer.
      const auto limit = std::min(deadline, attemptStarted_ + lookLimit);
      if (!changed_.wait_until(lock, limit, [this] { return !connecting_ || !idle_.empty(); })) {
        return limit == deadline ? OpenFailure::timedOut : OpenFailure::noServer;
      }
      // One that succeeded may have served somebody else: that is no reason to give up.
      if (mine && !connecting_ && attemptFailed_) {
        return OpenFailure::noServer;
      }
      if (Clock::now() >= deadline) {
        return OpenFailure::timedOut;
      }
    }
  }

  void giveBack(Connection connection) {
    const std::lock_guard lock(mutex_);
    if (idle_.size() < maxIdle) {
      idle_.push_back(std::move(connection));
      changed_.notify_one();
    }
  }

 private:
  static constexpr std::size_t maxIdle = 4;

  /// Makes room for all that are ever kept, one that comes late included: giving one back must not
  /// fail.
  Pool() { idle_.reserve(maxIdle + 1); }
  friend NeverDestroyed<Pool>;

  /// An idle connection whose server is still there. What has arrived on any of them since is
  /// thrown away: every change of the keyboard map is announced to all.
  Connection takeIdle() {
    idle_.erase(std::remove_if(idle_.begin(), idle_.end(),
                               [](const Connection& idle) { return !drain(idle.get()); }),
                idle_.end());
    if (idle_.empty()) {
      return nullptr;
    }
    Connection connection = std::move(idle_.back());
    idle_.pop_back();
    return connection;
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
    for (xcb_extension_t* const extension : extensionsInUse) {
      xcb_prefetch_extension_data(connection.get(), extension);
    }
    for (xcb_extension_t* const extension : extensionsInUse) {
      xcb_get_extension_data(connection.get(), extension);
    }
    const auto* const xkb = xcb_get_extension_data(connection.get(), &xcb_xkb_id);
    if (!xkb) {
      return nullptr;  // the server has gone meanwhile
    }
    if (xkb->present != 0) {
      const Reply<xcb_xkb_use_extension_reply_t> used(xcb_xkb_use_extension_reply(
          connection.get(), xcb_xkb_use_extension(connection.get(), 1, 0), nullptr));
    }
    return connection;
  }

  void finishConnecting(Connection connection) {
    const std::lock_guard lock(mutex_);
    connecting_ = false;
    attemptFailed_ = !connection;
    if (connection) {
      idle_.push_back(std::move(connection));
    }
    changed_.notify_all();
  }

  std::mutex mutex_;
  std::condition_variable changed_;  // an attempt has ended, or a connection is idle
  std::vector<Connection> idle_;
  bool connecting_ = false;
  bool attemptFailed_ = false;
  Deadline attemptStarted_;
};

std::optional<Session> Session::open(Deadline deadline) {
  auto opened = tryOpen(deadline);
  auto* const session = std::get_if<Session>(&opened);
  return session ? std::optional(std::move(*session)) : std::nullopt;
}

std::variant<Session, OpenFailure> Session::tryOpen(Deadline deadline) {
  auto taken = Pool::shared().take(deadline);
  if (const auto* failure = std::get_if<OpenFailure>(&taken)) {
    return *failure;
  }
  return Session(std::get<Connection>(std::move(taken)), deadline);
}

Session::Session(Connection connection, Deadline deadline)
    : connection_(std::move(connection)), deadline_(deadline) {}

Session::~Session() {
  if (alive() && xcb_flush(connection_.get()) > 0) {
    Pool::shared().giveBack(std::move(connection_));
  }
}

bool Session::renew(Deadline deadline) {
  deadline_ = deadline;
  return alive() && drain(connection_.get());
}

bool Session::alive() const {
  return connection_ && !late_ && xcb_connection_has_error(connection_.get()) == 0;
}

const xcb_screen_t& Session::screen() const {
  return *xcb_setup_roots_iterator(xcb_get_setup(connection_.get())).data;
}

bool Session::has(xcb_extension_t& extension) const {
  const auto* const data = xcb_get_extension_data(connection_.get(), &extension);
  return data && data->present != 0;
}

bool Session::roundTrip() {
  return await(xcb_get_input_focus(connection_.get())) != nullptr;
}

Reply<xcb_generic_event_t> Session::awaitEvent(Deadline deadline) {
  while (!late_ && xcb_flush(connection_.get()) > 0) {
    if (Reply<xcb_generic_event_t> event{xcb_poll_for_event(connection_.get())}) {
      return event;
    }
    if (!awaitInput(deadline)) {
      break;
    }
  }
  return nullptr;
}

void* Session::awaitReply(unsigned int sequence) {
  while (!late_ && xcb_flush(connection_.get()) > 0) {
    void* reply = nullptr;
    xcb_generic_error_t* error = nullptr;
    if (xcb_poll_for_reply(connection_.get(), sequence, &reply, &error) != 0) {
      const Reply<xcb_generic_error_t> refusal(error);
      return reply;
    }
    late_ = !awaitInput(deadline_);
  }
  return nullptr;
}

/// Waits until there is something to read. False when nothing comes in time.
bool Session::awaitInput(Deadline deadline) try {
  pollfd socket{xcb_get_file_descriptor(connection_.get()), POLLIN, 0};
  return Clock::now() < deadline && waitForEvents({&socket, 1}, deadline);
} catch (const AgentError&) {
  return false;
}

}  // namespace tervain::Linux::X11
