#pragma once

#include <chrono>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "VMAgentClient/GuestShell.h"
#include "VMAgentCore/Environment.h"

namespace tervain {

/// What a command line of ssh asks for, as far as it means something without a network.
struct SshCommandLine {
  enum class Terminal { never, automatic, wanted, forced };
  enum class Purpose { run, showVersion, showConfiguration };

  std::string host{};
  std::vector<std::string> words{};  // the command, or the subsystem's name
  std::optional<std::string> user{};
  std::vector<std::string> environment{};  // NAME=VALUE
  Terminal terminal = Terminal::automatic;
  Purpose purpose = Purpose::run;
  bool subsystem = false;
  bool noInput = false;
  bool quiet = false;
  std::optional<std::chrono::milliseconds> connectLimit{};

  bool operator==(const SshCommandLine&) const = default;
};

/// Why a command line of ssh can't be followed, for the user.
struct SshRefusal {
  std::string message;
};

/// Reads [OPTION...] [USER@]HOST [OPTION...] [COMMAND...], options with and without their arguments
/// as OpenSSH has them. `environment` has what SendEnv sends.
std::variant<SshCommandLine, SshRefusal> parseSshCommandLine(std::span<const std::string> arguments,
                                                             const Environment& environment);

/// The line for the guest's shell: the command in the home folder, or the login shell, or the
/// subsystem. Or why there is none.
std::variant<std::string, SshRefusal> guestLine(const SshCommandLine& line);

}  // namespace tervain
