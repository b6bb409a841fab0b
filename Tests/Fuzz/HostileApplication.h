#pragma once

#include <systemd/sd-bus.h>

#include <memory>
#include <string>
#include <vector>

#include "Fuzz/Bytes.h"
#include "VMAgentCore/UniqueFD.h"

namespace tervain::fuzz {

/// An accessibility bus, its registry, and one application on it that answers what an input tells
/// it to. The bus is honest, the application is not.
///
/// Every answer of the application begins with a byte that says what kind of answer it is, as the
/// functions of `Answers` do. At the end of the input it knows nothing any more, so that every walk
/// comes to an end.
class HostileApplication {
 public:
  static constexpr std::uint32_t pid = 42;

  /// Opens the bus; its address is in the environment from then on.
  HostileApplication();

  /// Answers until there is something to read on the descriptor.
  void serve(Bytes& input, int until);

  /// Closes the connections that the other side has not closed.
  void disconnect() { connections_.clear(); }

 private:
  struct CloseBus {
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
  };

  void accept();
  [[nodiscard]] bool answerAll(sd_bus* connection, Bytes& input) const;

  std::string address_;
  UniqueFD listener_;
  std::vector<std::unique_ptr<sd_bus, CloseBus>> connections_;
};

}  // namespace tervain::fuzz
