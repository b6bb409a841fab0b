#pragma once

#include <xcb/xcb.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string_view>

namespace tervain::X11 {

struct FreeReply {
  void operator()(void* reply) const { std::free(reply); }  // NOLINT(*-no-malloc): xcb's way
};

/// A reply of the X server. Null when the server refused, has gone or did not answer in time.
template <class T>
using Reply = std::unique_ptr<T, FreeReply>;

using Clock = std::chrono::steady_clock;

/// How long the operations that only look at something wait for the X server in all.
inline constexpr std::chrono::milliseconds lookLimit{1000};

/// The use of a connection to the X server that `DISPLAY` names, for one thread and one purpose.
/// Connections are kept for the next user, so that most uses cost no connecting. No wait for the
/// server lasts beyond the deadline, whatever state the server is in.
class Session {
 public:
  /// Nothing when there is no server, or none that answers by then.
  static std::optional<Session> open(Clock::time_point deadline);

  Session(Session&& other) noexcept = default;
  Session& operator=(Session&& other) noexcept = default;
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session();

  /// Makes a session that was kept unused ready for another use: throws away what has arrived
  /// since, and waits by the new deadline from now on. False when the server has gone.
  bool renew(Clock::time_point deadline);

  /// Whether the server is still there, and has answered in time so far.
  [[nodiscard]] bool alive() const;

  /// Whether the server has an extension. It must be among those that connecting asks for, or this
  /// waits without a time limit.
  [[nodiscard]] bool has(xcb_extension_t& extension) const;

  /// Never null, so that requests can be made at any time; their replies are null when the server
  /// has gone or the time is up.
  [[nodiscard]] xcb_connection_t* get() const { return connection_.get(); }

  /// The first screen.
  [[nodiscard]] const xcb_screen_t& screen() const;

  /// The atom of a name; none when the server doesn't tell.
  xcb_atom_t atom(std::string_view name);

  /// Waits for an event, until the deadline given here. Null when none comes.
  Reply<xcb_generic_event_t> awaitEvent(Clock::time_point deadline);

  /// Waits until the server has carried out every request so far. False when it doesn't in time.
  bool roundTrip();

  /// Waits for the reply to a request: `await<xcb_get_image_reply_t>(xcb_get_image(…).sequence)`.
  template <class T>
  Reply<T> await(unsigned int sequence) {
    return Reply<T>(static_cast<T*>(awaitReply(sequence)));
  }

 private:
  struct Disconnect {
    void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
  };
  using Connection = std::unique_ptr<xcb_connection_t, Disconnect>;
  class Pool;

  Session(Connection connection, Clock::time_point deadline);
  void* awaitReply(unsigned int sequence);
  bool awaitInput(Clock::time_point deadline);

  Connection connection_;
  Clock::time_point deadline_;
  bool late_ = false;  // what the server may still answer must not reach the next user
};

}  // namespace tervain::X11
