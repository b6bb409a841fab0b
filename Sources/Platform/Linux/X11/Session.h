#pragma once

#include <xcb/xcb.h>

#include <chrono>
#include <memory>
#include <optional>
#include <variant>

#include "Platform/Linux/X11/Reply.h"
#include "VMAgentCore/Deadline.h"

namespace tervain::Linux::X11 {

/// Why there is no session.
enum class OpenFailure {
  noServer,  ///< there is none, it refuses us, or connecting to it takes longer than `lookLimit`
  timedOut,  ///< the deadline has passed
};

/// How long the operations that only look at something wait for the X server in all.
inline constexpr std::chrono::milliseconds lookLimit{1000};

/// The use of a connection to the X server that `DISPLAY` names, for one thread and one purpose.
/// Connections are kept for the next user, so that most uses cost no connecting. No wait for the
/// server lasts beyond the deadline, whatever state the server is in.
class Session {
 public:
  /// Nothing when there is no server, or none that answers by then.
  static std::optional<Session> open(Deadline deadline);

  /// The same for those who want to know why it failed.
  static std::variant<Session, OpenFailure> tryOpen(Deadline deadline);

  Session(Session&& other) noexcept = default;
  Session& operator=(Session&& other) noexcept = default;
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session();

  /// Makes a session that was kept unused ready for another use: throws away what has arrived
  /// since, and waits by the new deadline from now on. False when the server has gone.
  bool renew(Deadline deadline);

  /// Whether the server is still there, and has answered in time so far.
  [[nodiscard]] bool alive() const;

  /// Whether an answer has not come by the deadline. There will be none any more.
  [[nodiscard]] bool late() const { return late_; }

  /// Whether the server has an extension. It must be among those that connecting asks for, or this
  /// waits without a time limit.
  [[nodiscard]] bool has(xcb_extension_t& extension) const;

  /// Never null, so that requests can be made at any time; their replies are null when the server
  /// has gone or the time is up.
  [[nodiscard]] xcb_connection_t* get() const { return connection_.get(); }

  /// The first screen.
  [[nodiscard]] const xcb_screen_t& screen() const;

  /// Waits for an event, until the deadline given here. Null when none comes.
  Reply<xcb_generic_event_t> awaitEvent(Deadline deadline);

  /// Waits until the server has carried out every request so far. False when it doesn't in time.
  bool roundTrip();

  /// Waits for the reply to a request: `await(xcb_get_image(…))`.
  template <class Cookie>
  ReplyTo<Cookie> await(Cookie cookie) {
    using Answer = typename ReplyTo<Cookie>::pointer;
    return ReplyTo<Cookie>(static_cast<Answer>(awaitReply(cookie.sequence)));
  }

 private:
  struct Disconnect {
    void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
  };
  using Connection = std::unique_ptr<xcb_connection_t, Disconnect>;
  class Pool;

  Session(Connection connection, Deadline deadline);
  void* awaitReply(unsigned int sequence);
  bool awaitInput(Deadline deadline);

  Connection connection_;
  Deadline deadline_;
  bool late_ = false;  // what the server may still answer must not reach the next user
};

}  // namespace tervain::Linux::X11
