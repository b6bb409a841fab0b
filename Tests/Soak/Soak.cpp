// Drives the real agent for minutes on end with many hosts at once, good and bad, on a desktop
// whose parts come and go, and looks every minute whether anything has piled up in it.
//
//   Soak MINUTES [SEED]
//
// It is started by Tools/desktop, whose X server and accessibility bus it restarts, and
// leaves with status 1 when something grew, a reply did not come or the agent did not recover.

#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <deque>
#include <memory>
#include <random>
#include <thread>

#include "Support/AgentProcess.h"

namespace tervain::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Random = std::mt19937;

/// How much more than after the warm-up there may be of each at the end. The agent keeps idle
/// connections to the X server, and how many depends on how many hosts were last at it at once; the
/// C library keeps some memory of threads that have ended.
constexpr Footprint tolerance{.descriptors = 4, .threads = 2, .children = 0};
constexpr std::size_t memoryTolerance = 6 << 20;

/// Longer than any thread or connection is kept after its last use.
constexpr seconds keepTime{12};

/// Bounds what the desktop may take to work again, on a machine that is busy.
constexpr std::chrono::minutes recoveryTime{2};

constexpr int workers = 6;
constexpr seconds warmUp{20};

const char* const launcher = "/usr/libexec/at-spi-bus-launcher";
const std::string qtExamples = "/usr/lib/x86_64-linux-gnu/qt5/examples/widgets/";

std::atomic<bool> interrupted = false;

/// A variable of the environment; empty when it is not set.
std::string variable(const char* name) {
  const char* const value = std::getenv(name);
  return value ? value : "";
}

int pick(Random& random, int count) {
  return std::uniform_int_distribution(0, count - 1)(random);
}

struct Tally {
  std::atomic<int> connections, replies, refusals;  // refusals are among the replies
  std::atomic<int> missing;                         // replies that a patient host did not get
};

/// One of the hosts: what it does to the agent is chosen by its random numbers.
class Host {
 public:
  Host(const AgentProcess& agent, unsigned seed, Tally& tally)
      : agent_(agent), random_(seed), tally_(tally) {}

  void runUntil(Deadline end) {
    while (Clock::now() < end && !interrupted) {
      using Way = void (Host::*)(Peer&);
      constexpr std::array<Way, 9> ways{&Host::ask,   &Host::ask,    &Host::command,
                                        &Host::feed,  &Host::dawdle, &Host::vanish,
                                        &Host::stall, &Host::babble, &Host::collect};
      Peer peer = agent_.connect();
      ++tally_.connections;
      (this->*ways[static_cast<std::size_t>(pick(random_, ways.size()))])(peer);
    }
  }

 private:
  /// A request for any ordinary operation.
  std::string request() {
    const std::string at = R"(,"x":)" + std::to_string(pick(random_, 1920)) + R"(,"y":)" +
                           std::to_string(pick(random_, 1080)) + "}";
    const std::string ref = R"(,"ref":"e)" + std::to_string(1 + pick(random_, 60)) + '"';
    const std::string all[] = {
        R"({"op":"ping"})",
        R"({"op":"cursor_position"})",
        R"({"op":"ax_dump"})",
        R"({"op":"ax_dump","maxDepth":25})",
        R"({"op":"ax_element_at")" + at,
        R"({"op":"ax_action")" + ref + "}",
        R"({"op":"ax_focus")" + ref + "}",
        R"({"op":"ax_set_value","value":"soaked")" + ref + "}",
        R"({"op":"screenshot"})",
        R"({"op":"click")" + at,
        R"({"op":"move")" + at,
        R"({"op":"drag","fromX":10,"fromY":10,"toX":300,"toY":200})",
        R"({"op":"scroll","dy":-2})",
        R"({"op":"type","text":"Grüße Ω 漢"})",
        R"({"op":"key","chord":"cmd+a"})",
        R"({"op":"launch_app","name":"No Such Application"})",
    };
    return all[pick(random_, static_cast<int>(std::size(all)))];
  }

  void note(const Json& reply) {
    ++(reply.is_object() ? tally_.replies : tally_.missing);
    tally_.refusals += reply.is_object() && !reply.value("ok", false) ? 1 : 0;
  }

  void ask(Peer& peer) {
    for (int i = pick(random_, 12); i >= 0; --i) {
      note(peer.ask(request()));
    }
  }

  void startCommand(const Peer& peer, const std::string& text) {
    peer.send(Json{{"op", "exec"}, {"command", text}}.dump() + '\n');
  }

  void noteEnd(Peer& peer, int code) {
    const bool right = readExec(peer).code == code;
    ++(right ? tally_.replies : tally_.missing);
  }

  void command(Peer& peer) {
    const int code = pick(random_, 100);
    startCommand(peer, "seq 20000; echo >&2; exit " + std::to_string(code));
    noteEnd(peer, code);
  }

  void feed(Peer& peer) {
    startCommand(peer, "cat; sleep 60");
    for (int i = pick(random_, 20); i >= 0; --i) {
      peer.send(stdinFrame(std::string(1000, 'x')));
    }
    peer.send("{\"t\":\"eof\"}\n{\"t\":\"sig\",\"n\":15}\n");
    noteEnd(peer, 128 + SIGTERM);
  }

  /// Reads as late as the command does, and both get everything nonetheless.
  void dawdle(Peer& peer) {
    const std::string input(500'000, 'x');
    startCommand(peer, "sleep 0.3; cat");
    peer.send(stdinFrame(input) + "{\"t\":\"eof\"}\n");
    std::this_thread::sleep_for(milliseconds(pick(random_, 1000)));
    const ExecResult result = readExec(peer);
    ++(result.out == input && result.code == 0 ? tally_.replies : tally_.missing);
  }

  /// Leaves in the middle of a line, a frame, an operation or a command.
  void vanish(Peer& peer) {
    std::string line = request() + '\n';
    if (pick(random_, 2) == 0) {
      startCommand(peer, "sleep 60 & sleep 60");
      line = stdinFrame("never read");
    }
    peer.send(line.substr(0, static_cast<std::size_t>(pick(random_, 2) == 0 ? 10 : -1)));
  }

  /// Asks for more than the connection holds and reads none of it.
  void stall(Peer& peer) {
    if (pick(random_, 2) == 0) {
      startCommand(peer, "exec yes");
    } else {
      for (int i = 0; i < 20; ++i) {
        peer.send("{\"op\":\"screenshot\"}\n{\"op\":\"ax_dump\"}\n");
      }
    }
    std::this_thread::sleep_for(milliseconds(pick(random_, 1000)));
  }

  void babble(Peer& peer) {
    std::string noise(static_cast<std::size_t>(1 + pick(random_, 200'000)), '\0');
    for (char& c : noise) {
      c = static_cast<char>('\x80' + pick(random_, 128));  // no line feed among them
    }
    note(peer.ask(noise));
    note(peer.ask(std::string(5000, '[')));
    note(peer.ask(R"({"op":"no such operation"})"));
  }

  /// Leaves events in the spool and takes what is there.
  void collect(Peer& peer) {
    Peer other = agent_.connect();
    startCommand(other, "d=$HOME/Library/Caches/tervain-dulk; mkdir -p $d; seq 1000 > $d/$$.jsonl");
    noteEnd(other, 0);
    note(peer.ask(R"({"op":"shell-events","truncate":true})"));
  }

  const AgentProcess& agent_;
  Random random_;
  Tally& tally_;
};

/// The desktop around this program, and the applications on it.
class Desktop {
 public:
  explicit Desktop(unsigned seed) : random_(seed) {}

  /// Lets an application come or go.
  void stir() {
    const std::vector<std::vector<std::string>> commands{
        {"gtk3-widget-factory"},
        {qtExamples + "gallery/gallery"},
        {qtExamples + "widgets/calculator/calculator"},
        {"zenity", "--entry", "--text=soak"},
        {"mousepad"}};
    if (applications_.size() < 3) {
      applications_.push_back(std::make_unique<Program>(
          commands[static_cast<std::size_t>(pick(random_, static_cast<int>(commands.size())))]));
    } else {
      applications_.pop_front();
    }
    if (pick(random_, 5) == 0) {
      restart(manager_, "icewm", {"icewm"});
    }
  }

  void clear() { applications_.clear(); }

  void restartX() {
    clear();
    restart(server_, "Xvfb",
            {"Xvfb", variable("DISPLAY"), "-displayfd", "1", "-screen", "0", "1920x1080x24",
             "-nolisten", "tcp", "-noreset", "-dpi", "96"});
    static_cast<void>(server_->line());  // it serves when it has written one
    restart(manager_, "icewm", {"icewm"});
  }

  void restartAccessibility() {
    clear();
    if (const pid_t running = accessibility_ ? accessibility_->pid() : desktops(launcher)) {
      kill(running, SIGSTOP);  // so that it does not answer for a bus that has gone
      for (const pid_t bus : childrenOf(running)) {
        kill(bus, SIGKILL);
      }
      kill(running, SIGKILL);
    }
    restart(accessibility_, launcher, {launcher, "--launch-immediately", "--a11y=1"});
  }

 private:
  /// What the desktop has started, our own parent's child; 0 once it has ended.
  static pid_t desktops(const std::string& name) {
    for (const pid_t pid : childrenOf(getppid())) {
      if (textOf("/proc/" + std::to_string(pid) + "/cmdline").starts_with(name + '\0')) {
        return pid;
      }
    }
    return 0;
  }

  static void restart(std::optional<Program>& program, const std::string& name,
                      const std::vector<std::string>& command) {
    program.reset();
    if (const pid_t first = desktops(name); first > 0) {
      kill(first, SIGTERM);
      eventually([first] { return !isRunning(first); });
    }
    program.emplace(command);
  }

  Random random_;
  std::optional<Program> server_;
  std::optional<Program> manager_;
  std::optional<Program> accessibility_;
  std::deque<std::unique_ptr<Program>> applications_;
};

/// One look at the agent while nobody asks anything of it.
struct Sample {
  Footprint footprint;
  std::size_t memory;
};

class Soak {
 public:
  explicit Soak(unsigned seed) : seeds_(seed), desktop_(seed) {}

  bool run(int minutes) {
    std::puts(
        "minute  connections  replies  refused  missing  descriptors  threads  children    MiB");
    const Sample first = period(0, warmUp);
    Sample last = first;
    for (int minute = 1; minute <= minutes && !interrupted; ++minute) {
      last = period(minute, seconds(60));
    }
    const Footprint most{first.footprint.descriptors + tolerance.descriptors,
                         first.footprint.threads + tolerance.threads,
                         first.footprint.children + tolerance.children};
    const bool flat = last.footprint.within(most) && last.memory <= first.memory + memoryTolerance;
    std::printf("%s; %s; %s\n", flat ? "flat" : "GREW", recovered_ ? "recovered" : "NOT RECOVERED",
                tally_.missing == 0 ? "no reply missing" : "REPLIES MISSING");
    return flat && recovered_ && tally_.missing == 0 && !interrupted;
  }

 private:
  Sample period(int minute, Clock::duration length) {
    const auto start = Clock::now();
    std::vector<std::thread> hosts;
    hosts.reserve(workers);
    for (int i = 0; i < workers; ++i) {
      hosts.emplace_back([this, seed = static_cast<unsigned>(seeds_()), end = start + length] {
        Host(agent_, seed, tally_).runUntil(end);
      });
    }
    stirUntil(start + length / 3);
    desktop_.restartX();
    stirUntil(start + 2 * length / 3);
    desktop_.restartAccessibility();
    stirUntil(start + length);
    for (std::thread& host : hosts) {
      host.join();
    }
    recovered_ = recovered_ && works();
    return look(minute);
  }

  void stirUntil(Deadline end) {
    while (Clock::now() < end && !interrupted) {
      desktop_.stir();
      std::this_thread::sleep_for(milliseconds(1500));
    }
  }

  /// Whether all that the desktop offers can be used.
  bool works() {
    desktop_.clear();
    const Program application({"zenity", "--entry"});
    const Json dump{{"op", "ax_dump"}, {"pid", application.pid()}};
    Peer peer = agent_.connect();
    return interrupted ||
           eventually(
               [&] {
                 return peer.ask(dump.dump())["tree"].contains("children") &&
                        peer.ask(R"({"op":"screenshot"})").value("ok", false) &&
                        peer.ask(R"({"op":"click","x":960,"y":540})").value("ok", false) &&
                        peer.ask(R"({"op":"cursor_position"})").value("x", 0) == 960;
               },
               recoveryTime);
  }

  Sample look(int minute) {
    Sample sample{};
    Deadline changed;
    eventually([&] {
      const Footprint now = agent_.footprint();
      if (!now.within(sample.footprint) || !sample.footprint.within(now)) {
        sample.footprint = now;
        changed = Clock::now();
      }
      return now.children == 0 && Clock::now() - changed > keepTime;
    });
    sample.memory = agent_.residentBytes();
    std::printf("%6d %12d %8d %8d %8d %12zu %8zu %9zu %6.1f\n", minute, tally_.connections.load(),
                tally_.replies.load(), tally_.refusals.load(), tally_.missing.load(),
                sample.footprint.descriptors, sample.footprint.threads, sample.footprint.children,
                static_cast<double>(sample.memory) / (1 << 20));
    std::fflush(stdout);
    return sample;
  }

  Random seeds_;
  Tally tally_;
  bool recovered_ = true;
  Desktop desktop_;
  AgentProcess agent_{
      {.environment = {{"DISPLAY", variable("DISPLAY")},
                       {"DBUS_SESSION_BUS_ADDRESS", variable("DBUS_SESSION_BUS_ADDRESS")},
                       {"XDG_RUNTIME_DIR", variable("XDG_RUNTIME_DIR")}}}};
};

}  // namespace
}  // namespace tervain::test

// NOLINTNEXTLINE(bugprone-exception-escape): a run without what it needs ends
int main(int argc, char** argv) {
  const int minutes = argc > 1 ? static_cast<int>(std::strtol(argv[1], nullptr, 10)) : 0;
  if (minutes < 1 || !std::getenv("TERVAIN_DESKTOP")) {
    std::fputs("usage: desktop Soak MINUTES [SEED]\n", stderr);
    return EXIT_FAILURE;
  }
  const unsigned seed =
      argc > 2 ? static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10)) : std::random_device()();
  std::printf("seed %u\n", seed);
  std::signal(SIGPIPE, SIG_IGN);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    std::signal(number, [](int) { tervain::test::interrupted = true; });
  }
  return tervain::test::Soak(seed).run(minutes) ? EXIT_SUCCESS : EXIT_FAILURE;
}
