#include "Platform/Linux/AccessibilityBus.h"

#include <systemd/sd-bus.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

namespace tervain::AccessibilityBus {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds limit{1};

struct CloseBus {
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, CloseBus>;

/// Lets the bus work until `done` holds. False when the time is up or the connection breaks. Unlike
/// sd_bus_call, which waits for the connection to be set up for as long as that takes.
template <class Condition>
bool runUntil(sd_bus* bus, Clock::time_point deadline, Condition done) {
  while (!done()) {
    const int progress = sd_bus_process(bus, nullptr);
    if (progress < 0) {
      return false;
    }
    if (progress > 0) {
      continue;
    }
    const auto left =
        std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now()).count();
    if (left <= 0 || sd_bus_wait(bus, static_cast<std::uint64_t>(left)) < 0) {
      return false;
    }
  }
  return true;
}

struct Answer {
  bool arrived = false;
  std::string text;
};

int keepAnswer(sd_bus_message* reply, void* userdata, sd_bus_error* /*error*/) {
  auto& answer = *static_cast<Answer*>(userdata);
  answer.arrived = true;
  const char* text = nullptr;
  if (sd_bus_message_read(reply, "s", &text) >= 0) {  // fails for an error reply
    answer.text = text;
  }
  return 1;
}

/// The address of the accessibility bus as the session bus tells it. Empty when it doesn't.
std::string askSessionBus(Clock::time_point deadline) {
  sd_bus* opened = nullptr;
  if (sd_bus_open_user(&opened) < 0) {
    return {};
  }
  Answer answer;
  const Bus bus(opened);
  const int sent = sd_bus_call_method_async(bus.get(), nullptr, "org.a11y.Bus", "/org/a11y/bus",
                                            "org.a11y.Bus", "GetAddress", keepAnswer, &answer, "");
  if (sent < 0) {
    return {};
  }
  runUntil(bus.get(), deadline, [&answer] { return answer.arrived; });
  return answer.text;
}

std::string address(Clock::time_point deadline) {
  if (const char* given = std::getenv("AT_SPI_BUS_ADDRESS"); given && *given) {
    return given;
  }
  return askSessionBus(deadline);
}

}  // namespace

bool answers() {
  const Clock::time_point deadline = Clock::now() + limit;
  const std::string where = address(deadline);
  sd_bus* made = nullptr;
  if (where.empty() || sd_bus_new(&made) < 0) {
    return false;
  }
  const Bus bus(made);
  if (sd_bus_set_address(bus.get(), where.c_str()) < 0 || sd_bus_set_bus_client(bus.get(), 1) < 0 ||
      sd_bus_start(bus.get()) < 0) {
    return false;
  }
  // Ready means that the bus has answered our greeting.
  return runUntil(bus.get(), deadline, [&bus] { return sd_bus_is_ready(bus.get()) > 0; });
}

}  // namespace tervain::AccessibilityBus
