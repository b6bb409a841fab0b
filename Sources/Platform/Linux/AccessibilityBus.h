#pragma once

#include <systemd/sd-bus.h>

#include <chrono>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// The bus on which applications show their accessibility trees.
namespace tervain::AccessibilityBus {

using Clock = std::chrono::steady_clock;

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

struct UnrefMessage {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, UnrefMessage>;

struct CloseBus {
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, CloseBus>;

/// How much of a text is taken from an answer, in bytes: more than anybody is shown of it, for an
/// application could send a hundred megabytes.
inline constexpr std::size_t maxText = 16'384;

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
    return enterVariant(type) ? read<T>(type) : std::nullopt;
  }
  [[nodiscard]] std::string variantText() const { return enterVariant('s') ? text() : ""; }

 private:
  [[nodiscard]] bool enterVariant(char type) const {
    const std::string contents(1, type);
    return message && sd_bus_message_enter_container(message.get(), 'v', contents.c_str()) > 0;
  }
};

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
  /// answer, serves one question of each. Null when the application does not accept it in time.
  static std::unique_ptr<Connection> toApplication(const std::string& address, std::size_t lanes,
                                                   std::chrono::milliseconds limit);

  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection();

  // Messages to be sent. A null message stands for one that could not be made.
  [[nodiscard]] Message method(const Object& object, const char* interface,
                               const char* member) const;
  [[nodiscard]] Message property(const Object& object, const char* interface,
                                 const char* name) const;

  /// Queues a call. The handler may queue more.
  void ask(Message call, Handler handler);

  /// Works until every call is answered. When the other side has been silent for as long as
  /// `silence`, the deadline passes or the connection breaks, all that is left is answered with
  /// that. Gives `answered`, `timedOut` or `noBus`.
  Outcome run(std::chrono::milliseconds silence,
              Clock::time_point deadline = Clock::time_point::max());

  /// A single call.
  Answer askNow(Message call, std::chrono::milliseconds silence,
                Clock::time_point deadline = Clock::time_point::max());

 private:
  struct UnrefSlot {
    void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
  };
  struct Call {
    Message message;  ///< the call, then its reply
    Handler handler;
    Connection* connection = nullptr;
    std::unique_ptr<sd_bus_slot, UnrefSlot> slot;
  };
  using Calls = std::list<Call>;

  Connection() = default;
  enum class With { bus, application };
  static std::unique_ptr<Connection> open(const std::string& address, With peer, std::size_t lanes,
                                          Clock::time_point deadline);
  [[nodiscard]] bool usable() const;
  [[nodiscard]] bool isOpen() const;
  static int keepReply(sd_bus_message* reply, void* userdata, sd_bus_error* error);
  void send();
  bool handleReplies();
  void giveUp(Outcome outcome);
  Outcome work(std::chrono::milliseconds silence, Clock::time_point deadline);

  std::vector<Bus> buses_;  // the lanes, mostly one
  Calls queued_;
  Calls sent_;
  Calls replied_;
  bool broken_ = false;
};

}  // namespace tervain::AccessibilityBus
