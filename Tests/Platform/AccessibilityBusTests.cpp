#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <csignal>
#include <memory>
#include <thread>

#include "Platform/Linux/AccessibilityBus.h"
#include "Support/Deadline.h"
#include "Support/TempDir.h"
#include "VMAgentCore/IO.h"
#include "VMAgentCore/UniqueFD.h"

namespace tervain::AccessibilityBus {
namespace {

using namespace std::chrono_literals;

/// An application that has a connection of its own for those who want to look at it, and does
/// something to it for each message that comes.
class Application {
 public:
  explicit Application(sd_bus_message_handler_t behaviour) : listener_(listen()) {
    thread_ = std::thread([this, behaviour] {
      const Bus bus = accept();
      sd_bus_add_filter(bus.get(), nullptr, behaviour, nullptr);
      while (sd_bus_process(bus.get(), nullptr) >= 0 && sd_bus_wait(bus.get(), UINT64_MAX) >= 0) {
      }
    });
  }
  ~Application() { thread_.join(); }
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;

  [[nodiscard]] std::string address() const { return "unix:path=" + dir_.path("bus"); }

 private:
  [[nodiscard]] UniqueFD listen() const {
    UniqueFD socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un at{};
    at.sun_family = AF_UNIX;
    dir_.path("bus").copy(at.sun_path, sizeof at.sun_path - 1);
    EXPECT_EQ(bind(socket.get(), reinterpret_cast<const sockaddr*>(&at), sizeof at), 0);
    EXPECT_EQ(::listen(socket.get(), 1), 0);
    return socket;
  }

  [[nodiscard]] Bus accept() const {
    sd_bus* made = nullptr;
    sd_bus_new(&made);
    const int fd = accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    sd_bus_set_fd(made, fd, fd);
    sd_bus_set_server(made, 1, {});
    sd_bus_set_anonymous(made, 1);
    sd_bus_start(made);
    return Bus(made);
  }

  test::TempDir dir_;
  UniqueFD listener_;
  std::thread thread_;
};

/// A signal of the bus's own protocol, as plain as can be: sd-bus would not be fast enough.
constexpr std::string_view signal(
    "l\4\1\1\0\0\0\0\1\0\0\0\x2a\0\0\0"  // little-endian, 42 bytes of fields
    "\1\1o\0\2\0\0\0/x\0\0\0\0\0\0"      // path
    "\2\1s\0\3\0\0\0x.y\0\0\0\0\0"       // interface
    "\3\1s\0\1\0\0\0Z\0\0\0\0\0\0\0",    // member
    64);

int sendSignalsWithoutEnd(sd_bus_message* question, void* /*userdata*/, sd_bus_error* /*error*/) {
  const int fd = sd_bus_get_fd(sd_bus_message_get_bus(question));
  fcntl(fd, F_SETFL, 0);  // blocking
  std::string many;
  while (many.size() < readSize) {
    many += signal;
  }
  while (writeAll(fd, many)) {
  }
  return -ECONNRESET;
}

std::atomic<int> answers;

int answerAtOnce(sd_bus_message* question, void* /*userdata*/, sd_bus_error* /*error*/) {
  const int sent = sd_bus_reply_method_return(question, "");
  ++answers;
  return sent;
}

/// Asks a question, and another one whenever one is answered; by then the next answer is there.
void askOn(Connection& connection, int& handled) {
  auto question = connection.method({"a.b", "/x"}, "x.y", "Z");
  connection.ask(std::move(question), [&](const Answer& answer) {
    if (answer) {
      ++handled;
      test::eventually([&] { return answers > handled; });
      askOn(connection, handled);
    }
  });
}

TEST(AccessibilityBus, EndsItsWaitsWhateverAnApplicationSends) {
  struct Case {
    sd_bus_message_handler_t behaviour;
    std::chrono::milliseconds silence;
    std::chrono::milliseconds limit;
  };
  for (const auto& [behaviour, silence, limit] :
       {Case{sendSignalsWithoutEnd, 100ms, 1h}, Case{answerAtOnce, 1h, 100ms}}) {
    std::signal(SIGPIPE, SIG_IGN);
    const Application application(behaviour);
    const auto connection = Connection::toApplication(application.address(), 1, test::patience);
    ASSERT_TRUE(connection);
    int handled = 0;
    askOn(*connection, handled);
    askOn(*connection, handled);
    const auto start = Clock::now();
    EXPECT_EQ(connection->run(silence, start + limit), Outcome::timedOut);
    EXPECT_LT(Clock::now() - start, test::patience);
  }
}

}  // namespace
}  // namespace tervain::AccessibilityBus
