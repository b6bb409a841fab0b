#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "VMAgentClient/AgentAddress.h"
#include "VMAgentClient/AgentConnection.h"

/// A conformance run: what the documentation promises of an agent, checked from outside.
namespace tervain::ctl::conform {

/// How long anything may take that must happen. Longer than the agent itself waits for a launch or
/// a picture, and reached only by what does not happen.
inline constexpr std::chrono::seconds patience{20};

/// The moment when patience runs out.
inline Deadline soon() {
  return std::chrono::steady_clock::now() + patience;
}

/// Asks again and again until `condition` holds. False when it does not in time.
template <class Condition>
bool eventually(Condition condition, std::chrono::milliseconds limit = patience) {
  constexpr std::chrono::milliseconds pause{50};  // an application is asked, which has work to do
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(pause);
  }
  return true;
}

/// What one check finds out. The first divergence decides; until then the check holds.
class Findings {
 public:
  enum class Verdict { held, diverged, skipped };

  /// Notes a divergence in these words, unless it holds. Returns `holds`.
  bool expect(bool holds, std::string_view divergence);

  /// The same for a value that must be this one and no other.
  bool expectEqual(std::string_view what, const Json& got, const Json& wanted);

  /// Nothing could be checked, and why. Does not hide a divergence found before.
  void skip(std::string_view why);

  /// A remark for the reader of the table.
  void note(std::string_view remark) { remark_ = remark; }

  [[nodiscard]] Verdict verdict() const { return verdict_; }
  /// Why it diverged or was skipped.
  [[nodiscard]] const std::string& reason() const { return reason_; }
  [[nodiscard]] const std::string& remark() const { return remark_; }

 private:
  Verdict verdict_ = Verdict::held;
  std::string reason_;
  std::string remark_;
};

/// The privacy grants that operations need.
enum class Grant { none, accessibility, inputSynthesis, screenRecording };

/// What a grant is called in the table.
std::string_view nameOf(Grant grant);

/// The guest that is checked, as it was when the run began.
class Guest {
 public:
  /// Asks the agent about itself. `app` is the editor to use; empty: the system's own. Throws
  /// AgentError when the agent can't be talked to.
  Guest(AgentAddress address, std::string app);

  /// A new connection. Throws AgentError.
  [[nodiscard]] AgentConnection connect() const { return AgentConnection(connectTo(address_)); }

  /// The reply to a request on a connection of its own. Throws AgentError.
  Json ask(const Json& request) const { return connect().request(request, soon()); }

  /// The agent's first reply to "ping", whatever it is.
  [[nodiscard]] const Json& status() const { return status_; }
  [[nodiscard]] bool granted(Grant grant) const;

  /// What `uname -s` prints in the guest; empty when it runs no commands.
  [[nodiscard]] const std::string& system() const { return system_; }
  [[nodiscard]] bool isMac() const { return system_ == "Darwin"; }

  /// Why the guest runs no commands; empty when it does.
  [[nodiscard]] const std::string& execRefusal() const { return execRefusal_; }

  /// The editor that the desktop checks work with.
  [[nodiscard]] const std::string& app() const { return app_; }

 private:
  AgentAddress address_;
  std::string app_;
  Json status_;
  std::string system_;
  std::string execRefusal_;
};

/// A command in the guest, and what has come of it so far.
class GuestCommand {
 public:
  /// Starts a command. What stands in `behind` is sent along in the same packet.
  GuestCommand(const Guest& guest, std::string_view command, std::string_view behind = {});

  /// A request as it is, of which an exec may or may not come.
  struct Request {
    std::string_view line;
  };
  GuestCommand(const Guest& guest, Request request, std::string_view behind = {});

  void send(const Json& frame) { connection_.send(frame); }
  void sendLine(std::string_view line) { connection_.sendLine(line); }
  void sendBytes(std::string_view bytes) { connection_.sendBytes(bytes); }
  void endSending() { connection_.endSending(); }

  /// Whether standard output comes to have so many bytes, in time.
  bool awaitOutput(std::size_t size);

  /// Whether standard output comes to hold a whole line, in time.
  bool awaitLine();

  /// Reads on. Whether the agent closes the connection, in time.
  bool awaitEnd();

  struct Came {
    std::string out;
    std::string err;
    std::optional<std::int64_t> code;    // of the exit frame
    std::optional<std::string> refusal;  // of the error frame
    std::size_t chunks = 0;              // frames of output
    std::size_t largestChunk = 0;        // bytes
    std::string stray;                   // the first line that is no documented frame
  };
  [[nodiscard]] const Came& came() const { return came_; }

 private:
  /// Whether the condition comes to hold before the connection ends or patience does.
  template <class Condition>
  bool readUntil(Condition condition);
  void take(std::string_view line);
  bool takeFrame(const Json& frame);
  bool takeOutput(const Json& frame, std::string& stream);

  AgentConnection connection_;
  Came came_;
};

/// Runs a command to its end. Throws AgentError when that does not come in time.
GuestCommand::Came runToEnd(const Guest& guest, std::string_view command);

/// The process number that a command printed alone in its first line; -1 when it did not.
std::int64_t pidIn(const GuestCommand::Came& came);

/// Whether a process of the guest is there and has not ended.
bool isRunning(const Guest& guest, std::int64_t pid);

/// A request and the error text that it must get where the grant is there.
struct Refusal {
  const char* request;
  std::string_view error;
};

/// Sends the requests. Without the grant each must be refused with that grant's text.
void expectRefusals(const Guest& guest, Findings& findings, Grant grant,
                    std::span<const Refusal> refusals);

/// Notes why the check is skipped, if this grant is missing. Returns whether it is there.
bool needs(const Guest& guest, Findings& findings, Grant grant);

/// A failure reply with this text.
Json failure(std::string_view error);

/// Whether an object has these members and no others.
bool hasMembers(const Json& object, std::initializer_list<const char*> names);

/// A value for the reader of the table: as JSON, and not too much of it.
std::string shown(const Json& value);

/// A row of the table.
struct Check {
  const char* area;
  const char* what;
  std::function<void(const Guest& guest, Findings& findings)> run;
};

// The checks, an area in a file of its own.
std::vector<Check> protocolChecks();
std::vector<Check> statusChecks();
std::vector<Check> execChecks();
std::vector<Check> spoolChecks();
std::vector<Check> inputChecks();
std::vector<Check> accessibilityChecks();
std::vector<Check> screenshotChecks();
std::vector<Check> launchChecks();
/// These start an application, work in it and end it.
std::vector<Check> desktopChecks();

}  // namespace tervain::ctl::conform
