#include "VMAgentClient/Diagnosis.h"

#include <cerrno>

#include "VMAgentClient/AgentStatus.h"
#include "VMAgentClient/ProtocolError.h"
#include "VMAgentClient/RemoteCommand.h"
#include "VMAgentCore/AgentError.h"

namespace tervain {
namespace {

/// The guest's own half: what its agent says of the system that it runs in, if it knows how to.
/// The agent is the parent of the shell that it runs. One that does not know how to check would
/// start another agent instead; those that do say so among their words.
constexpr std::string_view guestCheck =
    R"(agent=$(readlink "/proc/$PPID/exe" || ps -o comm= -p "$PPID") 2>/dev/null
LC_ALL=C grep -q -e 'TervainVMAgent --check --reached' "$agent" || exit 127
exec "$agent" --check --reached)";
constexpr int noGuestCheck = 127;

std::string vsockRemedy(int code) {
  switch (code) {
    case EAFNOSUPPORT:
      return "this kernel has no vsock: modprobe vhost_vsock (on a Mac only the program that runs "
             "the virtual machine reaches its vsock, see docs/hosts.md)";
    case ENODEV:
    case EHOSTUNREACH:
      return "no running virtual machine has this CID: start it, compare the CID with its "
             "settings, and see that the host has the module vhost_vsock";
    case ECONNRESET:
    case ECONNREFUSED:
      return "the virtual machine runs, but nothing listens on that port in it: log in there, and "
             "see whether the agent has been started";
    case ETIMEDOUT:
      return "the virtual machine does not react: it is still starting, hangs, or has not loaded "
             "its vsock driver";
    default:
      return "see docs/troubleshooting.md";
  }
}

std::string socketRemedy(int code) {
  switch (code) {
    case ENOENT:
    case ENOTDIR:
      return "there is no such socket: start the virtual machine, or correct the path";
    case EACCES:
    case EPERM:
      return "the socket belongs to another user: run this as that user";
    case ECONNREFUSED:
      return "nothing listens there: the program that made the socket has ended";
    case ENOTSOCK:
      return "this is no socket";
    case ETIMEDOUT:
      return "the program that made the socket takes no connections: it hangs, or is stopped";
    default:
      return "see docs/troubleshooting.md";
  }
}

std::string remedyOf(const AgentAddress& address, int code) {
  return std::holds_alternative<VsockAddress>(address) ? vsockRemedy(code) : socketRemedy(code);
}

class Examination {
 public:
  explicit Examination(const std::function<void(const Finding&)>& tell) : tell_(tell) {}

  bool run(std::string_view agent, const Environment& environment) {
    try {
      address_ = resolveAgent(agent, environment);
    } catch (const std::runtime_error& error) {
      return ill(error.what(), "correct the address, or add a line \"NAME ADDRESS\" to the file");
    }
    well("the address is " + toString(address_));
    examineWay();
    return allWell_;
  }

 private:
  void examineWay() {
    try {
      AgentConnection connection(connectTo(address_));
      well("it takes connections");
      examineAgent(std::move(connection));
    } catch (const AgentError& error) {
      ill(error.what(), remedyOf(address_, error.code()));
    } catch (const ProtocolError& error) {
      ill(error.what(),
          "log in to the guest, and see whether the agent runs and which port it has");
    }
  }

  void examineAgent(AgentConnection connection) {
    std::optional<AgentStatus> status;
    try {
      awaitAnswer(connection);
      status = statusOf(connection, after(connectLimit));
    } catch (const ProtocolError& error) {
      ill(error.what(), std::holds_alternative<ProgramAddress>(address_)
                            ? "run the program of the address by itself and see what it says"
                            : "the agent, or the whole guest, is stopped or hangs: see its log, "
                              "and start it anew");
      return;
    }
    if (status->version == AgentWire::version) {
      well("the agent answers");
    } else {
      ill("the agent speaks version " + std::to_string(status->version) + " of the protocol",
          "install the agent that belongs to this tool");
    }
    for (const std::string_view name : grantNames) {
      const std::string grant(name);
      if (missingGrants(*status, {&grant, 1}).empty()) {
        well("it has the grant " + grant);
      } else {
        ill("it lacks the grant " + grant,
            "provision the guest (docs/provisioning-macos.md, docs/linux.md), or log in to its "
            "desktop");
      }
    }
    examineGuest();
  }

  void examineGuest() {
    std::string output;
    const auto keep = [&output](std::string_view bytes) { output += bytes; };
    RemoteCommand check(AgentConnection(connectTo(address_)), guestCheck);
    const auto result = check.run({.onOutput = keep, .onError = keep});
    if (const auto* refused = std::get_if<RemoteCommand::Refused>(&result)) {
      ill("it runs no commands: " + refused->message, "install its shell in the guest");
      return;
    }
    const auto* exited = std::get_if<RemoteCommand::Exited>(&result);
    if (!exited) {
      ill("the connection was lost while a command ran", "see the agent's log");
      return;
    }
    well("it runs commands");
    output.erase(output.find_last_not_of('\n') + 1);
    if (exited->code == 0) {
      well("the guest finds itself in order");
    } else if (exited->code != noGuestCheck) {
      ill("the guest finds that something is wrong", output);
    }
  }

  void well(std::string what) { tell_({.well = true, .what = std::move(what)}); }

  bool ill(std::string what, std::string remedy) {
    allWell_ = false;
    tell_({.well = false, .what = std::move(what), .remedy = std::move(remedy)});
    return false;
  }

  const std::function<void(const Finding&)>& tell_;
  AgentAddress address_;
  bool allWell_ = true;
};

}  // namespace

bool diagnose(std::string_view agent, const Environment& environment,
              const std::function<void(const Finding&)>& tell) {
  return Examination(tell).run(agent, environment);
}

}  // namespace tervain
