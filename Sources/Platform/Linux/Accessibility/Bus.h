#pragma once

#include <sys/types.h>
#include <systemd/sd-bus.h>

#include <chrono>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VMAgentCore/Deadline.h"

/// The bus on which applications show their accessibility trees.
namespace tervain::Linux::AccessibilityBus {

/// Whether the accessibility bus exists and answers. Never takes longer than a second or two.
bool answers();

/// What became of a call.
enum class Outcome {
  answered,
  unknown,   ///< the application knows no such object, interface or method
  refused,   ///< any other error
  noReply,   ///< the application went away in the middle
  noOwner,   ///< the application had gone before
  timedOut,  ///< the application has been silent for too long
  noBus,     ///< the connection broke, or there is none
};

/// Whether a call was given up, as all that wait beside it are.
constexpr bool isGivenUp(Outcome outcome) {
  return outcome == Outcome::timedOut || outcome == Outcome::noBus;
}

struct UnrefMessage {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, UnrefMessage>;

struct CloseBus {
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, CloseBus>;

/// How much of a text is taken from an answer, in bytes: as much as 4,096 characters take and one
/// more, for an application could send a hundred megabytes.
inline constexpr std::size_t maxText = 16'384 + 4;

/// An answer as it came. Reading moves on within the message.
struct Answer {
  Outcome outcome = Outcome::noBus;
  Message message;  ///< null unless `answered`

  explicit operator bool() const { return outcome == Outcome::answered; }

  /// Reads one value of a basic type from a reply, `type` being its D-Bus code.
  template <class T>
  [[nodiscard]] std::optional<T> read(char type) const {
    T value{};
    if (!message || sd_bus_message_read_basic(message.get(), type, &value) <= 0) {
      return std::nullopt;
    }
    return value;
  }

  /// Reads a text, or its beginning if it is longer than `maxText`. Empty if there is none.
  [[nodiscard]] std::string text() const;

  /// The same of properties, which come wrapped in a variant.
  template <class T>
  [[nodiscard]] std::optional<T> readVariant(char type) const {
    const char contents[] = {type, '\0'};
    return enterVariant(contents) ? read<T>(type) : std::nullopt;
  }
  [[nodiscard]] std::string variantText() const { return enterVariant("s") ? text() : ""; }

  /// Goes on reading inside a variant. False if the next value is none of these contents.
  [[nodiscard]] bool enterVariant(const char* contents) const {
    return message && sd_bus_message_enter_container(message.get(), 'v', contents) > 0;
  }
};

/// A call to be made, and how its answer reads, which is all that is known of the answer.
template <class T>
struct Call {
  Message message;                  ///< null if it could not be made
  T (*read)(const Answer& answer);  ///< called with answers that are `answered`
};

/// What became of a call, and what its answer says.
template <class T>
struct Reply {
  Outcome outcome = Outcome::noBus;
  T value{};  ///< empty unless `answered`

  explicit operator bool() const { return outcome == Outcome::answered; }
};

/// What answers say that only confirm.
struct Nothing {};

/// An object of an application.
struct Object {
  std::string bus;  ///< the unique name of the application's connection
  std::string path;
};

using Handler = std::function<void(const Answer&)>;

/// A connection to the bus, for one thread. Calls are queued, sent many at a time, and handled as
/// their answers come; those about one object are answered in order.
class Connection {
 public:
  /// The calling thread's connection, which is kept for as long as it works. Null when there is no
  /// bus to be reached. Waits a second at the most.
  static Connection* ofThisThread();

  /// A connection straight to an application, past the bus, which nearly halves what a call costs.
  /// It has several lanes: a turn of the application's main loop, which costs about as much as an
  /// answer, serves one question of each, and we are woken once for all of them. Null when the
  /// application does not accept it in time.
  static std::unique_ptr<Connection> toApplication(const std::string& address, std::size_t lanes,
                                                   std::chrono::milliseconds limit);

  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection();

  /// Whether a connection that was kept unused can be used again, by whichever thread: not when the
  /// other side has gone, or may still answer what was given up.
  bool isReusable();

  // Messages to be sent. A null message stands for one that could not be made.
  [[nodiscard]] Message method(const Object& object, const char* interface,
                               const char* member) const;
  [[nodiscard]] Message property(const Object& object, const char* interface,
                                 const char* name) const;
  [[nodiscard]] Message assignment(const Object& object, const char* interface, const char* name,
                                   double value) const;

  /// Which process is behind a connection to the bus. The bus answers this itself, so that no
  /// application can hold it up.
  [[nodiscard]] Call<std::optional<pid_t>> getProcess(const Object& object) const;

  /// Queues a call. The handler may queue more.
  void ask(Message call, Handler handler);

  /// The same, with a handler of a `Reply<T>`.
  template <class T, class ReplyHandler>
  void ask(Call<T> call, ReplyHandler handler) {
    ask(std::move(call.message), [read = call.read, handler = std::move(handler)](
                                     const Answer& answer) { handler(replyIn(answer, read)); });
  }

  /// Works until every call is answered. When the other side has been silent for as long as
  /// `silence`, the deadline passes or the connection breaks, all that is left is answered with
  /// that. Gives `answered`, `timedOut` or `noBus`.
  Outcome run(std::chrono::milliseconds silence, Deadline deadline = Deadline::max());

  /// A single call.
  Answer askNow(Message call, std::chrono::milliseconds silence,
                Deadline deadline = Deadline::max());
  template <class T>
  Reply<T> askNow(Call<T> call, std::chrono::milliseconds silence,
                  Deadline deadline = Deadline::max()) {
    return replyIn(askNow(std::move(call.message), silence, deadline), call.read);
  }

 private:
  struct UnrefSlot {
    void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
  };
  struct Pending {
    Message message;  ///< the call, then its reply
    Handler handler;
    Connection* connection = nullptr;
    std::unique_ptr<sd_bus_slot, UnrefSlot> slot;
  };
  using Calls = std::list<Pending>;

  template <class T>
  static Reply<T> replyIn(const Answer& answer, T (*read)(const Answer&)) {
    return {answer.outcome, answer ? read(answer) : T{}};
  }

  Connection() = default;
  enum class With { bus, application };
  static std::unique_ptr<Connection> open(const std::string& address, With peer, std::size_t lanes,
                                          Deadline deadline);
  [[nodiscard]] bool usable() const;
  [[nodiscard]] bool isOpen() const;
  static int keepReply(sd_bus_message* reply, void* userdata, sd_bus_error* error);
  void send();
  bool handleReplies();
  void giveUp(Outcome outcome);
  Outcome work(std::chrono::milliseconds silence, Deadline deadline);

  std::vector<Bus> buses_;  // the lanes, mostly one
  Calls queued_;
  Calls sent_;
  Calls replied_;
  bool broken_ = false;
  bool late_ = false;  // something was given up that may still be answered
};

}  // namespace tervain::Linux::AccessibilityBus
