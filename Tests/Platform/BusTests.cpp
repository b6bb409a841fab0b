#include <fcntl.h>
#include <gtest/gtest.h>

#include <csignal>

#include "Platform/Linux/Accessibility/Bus.h"
#include "Support/BusServer.h"
#include "VMAgentCore/IO.h"

namespace tervain::Linux::AccessibilityBus {
namespace {

using namespace std::chrono_literals;

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

int answerAtOnce(sd_bus_message* question, void* /*userdata*/, sd_bus_error* /*error*/) {
  return sd_bus_reply_method_return(question, "");
}

/// Asks a question, and another one whenever one is answered.
void askOn(Connection& connection) {
  connection.ask(connection.method({"a.b", "/x"}, "x.y", "Z"), [&](const Answer& answer) {
    if (answer) {
      askOn(connection);
    }
  });
}

/// So many that there is nearly always an answer.
void askOnMany(Connection& connection) {
  for (int i = 0; i < 64; ++i) {
    askOn(connection);
  }
}

TEST(AccessibilityBus, EndsItsWaitsWhateverAnApplicationSends) {
  std::signal(SIGPIPE, SIG_IGN);
  const std::tuple<sd_bus_message_handler_t, std::chrono::milliseconds, std::chrono::milliseconds>
      cases[] = {{sendSignalsWithoutEnd, 100ms, 1h}, {answerAtOnce, 1h, 100ms}};
  for (const auto& [behaviour, silence, limit] : cases) {
    const test::BusApplication application(behaviour);
    const auto connection = application.connect();
    ASSERT_TRUE(connection && connection->isReusable());
    askOnMany(*connection);
    const auto start = Clock::now();
    EXPECT_EQ(connection->run(silence, start + limit), Outcome::timedOut);
    EXPECT_LT(Clock::now() - start, test::patience);
    // What was given up may be answered yet; where answers come at once, all may have been.
    EXPECT_TRUE(behaviour == answerAtOnce || !connection->isReusable());
  }
}

}  // namespace
}  // namespace tervain::Linux::AccessibilityBus
