#pragma once

#include <sys/socket.h>
#include <systemd/sd-bus.h>

#include <thread>

#include "Platform/Linux/Accessibility/Bus.h"
#include "Support/Peer.h"
#include "Support/TempDir.h"

namespace tervain::test {

/// The server's end of a D-Bus connection that waits at a listening socket.
inline Linux::AccessibilityBus::Bus acceptBus(int listener) {
  sd_bus* bus = nullptr;
  sd_bus_new(&bus);
  const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  sd_bus_set_fd(bus, fd, fd);
  sd_bus_set_server(bus, 1, {});
  sd_bus_set_anonymous(bus, 1);
  sd_bus_start(bus);
  return Linux::AccessibilityBus::Bus(bus);
}

/// An application that has a connection of its own for those who want to look at it, of which one
/// has to come, and is given each message.
class BusApplication {
 public:
  explicit BusApplication(sd_bus_message_handler_t handler, void* userdata = nullptr)
      : thread_([this, handler, userdata] {
          const auto bus = acceptBus(listener_.get());
          sd_bus_add_filter(bus.get(), nullptr, handler, userdata);
          while (sd_bus_process(bus.get(), nullptr) >= 0 &&
                 sd_bus_wait(bus.get(), UINT64_MAX) >= 0) {
          }
        }) {}
  ~BusApplication() { thread_.join(); }
  BusApplication(const BusApplication&) = delete;
  BusApplication& operator=(const BusApplication&) = delete;

  [[nodiscard]] std::unique_ptr<Linux::AccessibilityBus::Connection> connect() const {
    return Linux::AccessibilityBus::Connection::toApplication("unix:path=" + dir_.path("bus"), 1,
                                                              patience);
  }

 private:
  TempDir dir_;
  UniqueFD listener_ = listenAt(dir_.path("bus"));
  std::thread thread_;
};

}  // namespace tervain::test
