#include "Platform/Linux/Accessibility/Bus.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string_view>

#include "Platform/Linux/Accessibility/Atspi.h"

namespace tervain::Linux::AccessibilityBus {
namespace {

/// How long finding and greeting the bus may take.
constexpr std::chrono::milliseconds openLimit{1000};

/// How many calls are under way at once: enough to keep an application busy, and few enough that
/// it gets through them well within a messaging timeout.
constexpr std::size_t window = 128;

/// How long one lane alone is listened to: longer than it takes an application to get from one lane
/// to the next, and too short to matter to one that hangs with some lanes answered.
constexpr std::chrono::milliseconds oneLaneLimit{10};

/// How long is spent on what has come in over a connection that nobody used: much less than it
/// takes to make a new one, should somebody send without end.
constexpr std::chrono::milliseconds drainLimit{10};

// What every bus answers, and most of those on it.
constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";
constexpr const char* peerInterface = "org.freedesktop.DBus.Peer";
constexpr const char* daemonInterface = "org.freedesktop.DBus";

/// The bus itself.
Object daemon() {
  return {"org.freedesktop.DBus", "/org/freedesktop/DBus"};
}

/// Waits until there is something to do for one of the buses, or the time is up. What comes in
/// counts on the one that is listened to, or on any if that is null.
bool awaitWork(std::span<const Bus> buses, const sd_bus* listenedTo, Clock::duration limit) {
  std::vector<pollfd> sockets;
  for (const Bus& bus : buses) {
    int events = sd_bus_get_events(bus.get());
    if (events < 0) {
      return false;
    }
    if (listenedTo && listenedTo != bus.get()) {
      events &= ~POLLIN;
    }
    sockets.push_back({sd_bus_get_fd(bus.get()), static_cast<short>(events), 0});
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(limit).count();
  return poll(sockets.data(), sockets.size(), static_cast<int>(left)) >= 0 || errno == EINTR;
}

/// Handles what has come in on a bus, to the last of it, until the deadline: somebody may send us
/// signals for as long as they care. False when the bus breaks.
bool handleArrived(sd_bus* bus, Deadline deadline) {
  int result = 0;
  do {
    result = sd_bus_process(bus, nullptr);
  } while (result > 0 && Clock::now() < deadline);
  return result >= 0;
}

/// Lets the buses work until `done` holds. False when the time is up or one of them breaks. Unlike
/// sd_bus_call, which waits for the connection to be set up for as long as that takes. At first
/// only one of them is listened to, if it is given.
template <class Condition>
bool runUntil(std::span<const Bus> buses, Deadline deadline, Condition done,
              const sd_bus* listenedTo = nullptr) {
  while (!done()) {
    for (const Bus& bus : buses) {
      if (!handleArrived(bus.get(), deadline)) {
        return done();
      }
    }
    const auto left = deadline - Clock::now();
    if (done() || left <= Clock::duration::zero()) {
      return done();
    }
    if (!awaitWork(buses, listenedTo,
                   listenedTo ? std::min<Clock::duration>(left, oneLaneLimit) : left)) {
      return false;
    }
    listenedTo = nullptr;
  }
  return true;
}

struct Told {
  int answers = 0;
  std::string address;
};

int keepAddress(sd_bus_message* reply, void* userdata, sd_bus_error* /*error*/) {
  auto& told = *static_cast<Told*>(userdata);
  ++told.answers;
  const char* text = nullptr;
  if (sd_bus_message_read(reply, "s", &text) >= 0) {  // fails for an error reply
    told.address = text;
  }
  return 1;
}

int countAnswer(sd_bus_message* /*reply*/, void* userdata, sd_bus_error* /*error*/) {
  ++static_cast<Told*>(userdata)->answers;
  return 1;
}

/// The address of the accessibility bus as the session bus tells it. Empty when it doesn't. Says
/// at the same time that somebody is going to look, since Qt shows nothing otherwise.
std::string askSessionBus(Deadline deadline) {
  // Without either there is no session bus, and looking for it would cost a ping more than the
  // rest.
  if (!std::getenv("DBUS_SESSION_BUS_ADDRESS") && !std::getenv("XDG_RUNTIME_DIR")) {
    return {};
  }
  sd_bus* opened = nullptr;
  if (sd_bus_open_user(&opened) < 0) {
    return {};
  }
  Told told;  // must outlive the bus
  const Bus bus(opened);
  namespace Launcher = Atspi::Launcher;
  const int asked =
      sd_bus_call_method_async(bus.get(), nullptr, Launcher::name, Launcher::path,
                               Launcher::interface, Launcher::getAddress, keepAddress, &told, "");
  const int announced = sd_bus_call_method_async(
      bus.get(), nullptr, Launcher::name, Launcher::path, propertiesInterface, "Set", countAnswer,
      &told, "ssv", Launcher::statusInterface, Launcher::isEnabled, "b", 1);
  if (asked < 0 || announced < 0) {
    return {};
  }
  runUntil({&bus, 1}, deadline, [&told] { return told.answers == 2; });
  return told.address;
}

std::string addressOfBus(Deadline deadline) {
  if (const char* given = std::getenv("AT_SPI_BUS_ADDRESS"); given && *given) {
    return given;
  }
  return askSessionBus(deadline);
}

Outcome outcomeOf(sd_bus_message* reply) {
  const sd_bus_error* error = sd_bus_message_get_error(reply);
  if (!error) {
    return Outcome::answered;
  }
  static constexpr struct {
    std::string_view name;
    Outcome outcome;
  } outcomes[] = {
      {SD_BUS_ERROR_UNKNOWN_OBJECT, Outcome::unknown},
      {SD_BUS_ERROR_UNKNOWN_METHOD, Outcome::unknown},
      {SD_BUS_ERROR_UNKNOWN_INTERFACE, Outcome::unknown},
      {SD_BUS_ERROR_UNKNOWN_PROPERTY, Outcome::unknown},
      {SD_BUS_ERROR_NO_REPLY, Outcome::noReply},
      {SD_BUS_ERROR_SERVICE_UNKNOWN, Outcome::noOwner},
      {SD_BUS_ERROR_NAME_HAS_NO_OWNER, Outcome::noOwner},
      {SD_BUS_ERROR_DISCONNECTED, Outcome::noBus},
  };
  const auto* const found =
      std::find_if(std::begin(outcomes), std::end(outcomes),
                   [error](const auto& candidate) { return candidate.name == error->name; });
  return found == std::end(outcomes) ? Outcome::refused : found->outcome;
}

}  // namespace

std::string Answer::text() const {
  const std::string_view text = read<const char*>('s').value_or("");
  std::size_t end = std::min(text.size(), maxText);
  // Not in the middle of a character, whose bytes but the first begin with the bits 10.
  while (end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80) {
    --end;
  }
  return std::string(text.substr(0, end));
}

bool answers() {
  // The second attempt is for a bus that has come back while we held on to the old connection.
  for (int attempt = 0; attempt < 2; ++attempt) {
    Connection* connection = Connection::ofThisThread();
    if (!connection) {
      return false;
    }
    auto ping = connection->method(daemon(), peerInterface, "Ping");
    const Outcome outcome = connection->askNow(std::move(ping), openLimit).outcome;
    if (outcome != Outcome::noBus) {
      return outcome != Outcome::timedOut;
    }
  }
  return false;
}

Connection* Connection::ofThisThread() {
  thread_local std::unique_ptr<Connection> connection;
  if (!connection || !connection->usable()) {
    connection.reset();
    const Deadline deadline = after(openLimit);
    connection = open(addressOfBus(deadline), With::bus, /*lanes=*/1, deadline);
  }
  return connection.get();
}

std::unique_ptr<Connection> Connection::toApplication(const std::string& address, std::size_t lanes,
                                                      std::chrono::milliseconds limit) {
  // The application chose the address. Other kinds than a socket could start a program.
  if (!address.starts_with("unix:") || address.find(';') != std::string::npos) {
    return nullptr;
  }
  return open(address, With::application, lanes, after(limit));
}

std::unique_ptr<Connection> Connection::open(const std::string& address, With peer,
                                             std::size_t lanes, Deadline deadline) {
  if (address.empty()) {
    return nullptr;
  }
  std::unique_ptr<Connection> connection(new Connection);
  std::vector<Bus>& buses = connection->buses_;
  while (buses.size() < lanes) {
    sd_bus* made = nullptr;
    if (sd_bus_new(&made) < 0) {
      return nullptr;
    }
    buses.emplace_back(made);
    // Nothing sends us descriptors for a good reason, and enough of them would leave us none.
    if (sd_bus_negotiate_fds(made, 0) < 0 || sd_bus_set_address(made, address.c_str()) < 0 ||
        sd_bus_set_bus_client(made, peer == With::bus ? 1 : 0) < 0 || sd_bus_start(made) < 0) {
      return nullptr;
    }
  }
  // Ready means that the other side has answered our greeting.
  const bool ready = runUntil(buses, deadline, [&buses] {
    return std::all_of(buses.begin(), buses.end(),
                       [](const Bus& bus) { return sd_bus_is_ready(bus.get()) > 0; });
  });
  return ready ? std::move(connection) : nullptr;
}

Connection::~Connection() = default;

bool Connection::usable() const {
  return !broken_ && isOpen();
}

bool Connection::isReusable() {
  for (const Bus& bus : buses_) {
    handleArrived(bus.get(), after(drainLimit));  // its end, among other things
  }
  return !late_ && usable();
}

bool Connection::isOpen() const {
  return std::all_of(buses_.begin(), buses_.end(),
                     [](const Bus& bus) { return sd_bus_is_open(bus.get()) > 0; });
}

Message Connection::method(const Object& object, const char* interface, const char* member) const {
  sd_bus_message* made = nullptr;
  // All about one object goes the same way, so that it is answered in the order of the questions.
  sd_bus* const bus = buses_[std::hash<std::string_view>()(object.path) % buses_.size()].get();
  sd_bus_message_new_method_call(bus, &made, object.bus.c_str(), object.path.c_str(), interface,
                                 member);
  return Message(made);
}

Message Connection::property(const Object& object, const char* interface, const char* name) const {
  Message get = method(object, propertiesInterface, "Get");
  if (get) {
    sd_bus_message_append(get.get(), "ss", interface, name);
  }
  return get;
}

Message Connection::assignment(const Object& object, const char* interface, const char* name,
                               double value) const {
  Message set = method(object, propertiesInterface, "Set");
  if (set) {
    sd_bus_message_append(set.get(), "ssv", interface, name, "d", value);
  }
  return set;
}

Call<std::optional<pid_t>> Connection::getProcess(const Object& object) const {
  Message question = method(daemon(), daemonInterface, "GetConnectionUnixProcessID");
  if (question) {
    sd_bus_message_append(question.get(), "s", object.bus.c_str());
  }
  return {std::move(question), [](const Answer& answer) -> std::optional<pid_t> {
            const auto number = answer.read<std::uint32_t>('u');
            return number ? std::optional(static_cast<pid_t>(*number)) : std::nullopt;
          }};
}

void Connection::ask(Message call, Handler handler) {
  queued_.push_back({std::move(call), std::move(handler), this, nullptr});
}

Answer Connection::askNow(Message call, std::chrono::milliseconds silence, Deadline deadline) {
  Answer kept;
  ask(std::move(call), [&kept](const Answer& answer) {
    kept = {answer.outcome, Message(sd_bus_message_ref(answer.message.get()))};
  });
  run(silence, deadline);
  return kept;
}

Outcome Connection::run(std::chrono::milliseconds silence, Deadline deadline) {
  try {
    const Outcome outcome = work(silence, deadline);
    late_ = late_ || !sent_.empty();
    giveUp(outcome);
    return outcome;
  } catch (...) {
    late_ = true;
    // The handlers may refer to what is about to be unwound.
    queued_.clear();
    sent_.clear();
    replied_.clear();
    throw;
  }
}

Outcome Connection::work(std::chrono::milliseconds silence, Deadline deadline) {
  Deadline lastReply = Clock::now();
  for (;;) {
    send();
    // An application answers on all lanes alike. To be woken by one of them alone, when there are
    // answers on the others as well, saves it and us most of what waking costs.
    const sd_bus* const listenedTo =
        sent_.empty() ? nullptr : sd_bus_slot_get_bus(sent_.front().slot.get());
    const bool progress = runUntil(
        buses_, std::min(lastReply + silence, deadline),
        [this] { return !replied_.empty() || sent_.empty(); }, listenedTo);
    if (!progress) {
      broken_ = !isOpen();
      return broken_ ? Outcome::noBus : Outcome::timedOut;
    }
    if (!handleReplies() && queued_.empty()) {
      return Outcome::answered;
    }
    lastReply = Clock::now();
    // Handlers may go on asking for as long as an application goes on answering.
    if (lastReply >= deadline && !(sent_.empty() && queued_.empty())) {
      return Outcome::timedOut;
    }
  }
}

void Connection::send() {
  while (!queued_.empty() && sent_.size() < window) {
    sent_.splice(sent_.end(), queued_, queued_.begin());
    Pending& call = sent_.back();
    sd_bus_slot* slot = nullptr;
    constexpr std::uint64_t never = UINT64_MAX;  // we watch the time ourselves
    const int result = call.message
                           ? sd_bus_call_async(sd_bus_message_get_bus(call.message.get()), &slot,
                                               call.message.get(), keepReply, &call, never)
                           : -1;
    call.slot.reset(slot);
    call.message.reset();
    if (result < 0) {
      replied_.splice(replied_.end(), sent_, std::prev(sent_.end()));
    }
  }
}

int Connection::keepReply(sd_bus_message* reply, void* userdata, sd_bus_error* /*error*/) {
  auto& call = *static_cast<Pending*>(userdata);
  Connection& connection = *call.connection;
  call.message.reset(sd_bus_message_ref(reply));
  const auto place =
      std::find_if(connection.sent_.begin(), connection.sent_.end(),
                   [&call](const Pending& candidate) { return &candidate == &call; });
  connection.replied_.splice(connection.replied_.end(), connection.sent_, place);
  return 1;
}

/// False when there were none.
bool Connection::handleReplies() {
  const bool any = !replied_.empty();
  while (!replied_.empty()) {
    Pending call = std::move(replied_.front());
    replied_.pop_front();
    Answer answer;
    answer.outcome = call.message ? outcomeOf(call.message.get()) : Outcome::noBus;
    if (answer) {
      answer.message = std::move(call.message);
    }
    call.handler(answer);
  }
  return any;
}

/// Answers everything that has no answer yet, and what that leads to.
void Connection::giveUp(Outcome outcome) {
  for (Calls* calls : {&replied_, &sent_, &queued_}) {
    while (!calls->empty()) {
      const Handler handler = std::move(calls->front().handler);
      calls->pop_front();
      handler({outcome, nullptr});
    }
  }
}

}  // namespace tervain::Linux::AccessibilityBus
