#pragma once

#include <sys/socket.h>
#include <systemd/sd-bus.h>

#include "Platform/Linux/AccessibilityBus.h"

namespace tervain::test {

/// The server's end of a D-Bus connection that waits at a listening socket.
inline AccessibilityBus::Bus acceptBus(int listener) {
  sd_bus* bus = nullptr;
  sd_bus_new(&bus);
  const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  sd_bus_set_fd(bus, fd, fd);
  sd_bus_set_server(bus, 1, {});
  sd_bus_set_anonymous(bus, 1);
  sd_bus_start(bus);
  return AccessibilityBus::Bus(bus);
}

}  // namespace tervain::test
