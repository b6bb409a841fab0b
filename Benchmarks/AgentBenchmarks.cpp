// The whole executable beside yardsticks that do the bare minimum of the same work, in the same run
// and alternating with it, so that both meet the same machine.
//
//   AgentBenchmarks [streams | pings | lines | memory]

#include <fcntl.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <memory>
#include <thread>

#include "Measurement.h"
#include "Support/AgentProcess.h"
#include "VMAgentCore/ExecSession.h"
#include "VMAgentCore/IO.h"
#include "VMAgentCore/SpawnGroupLeader.h"
#include "VMAgentCore/System.h"

namespace tervain::bench {
namespace {

using test::AgentProcess;
using test::Peer;

constexpr double gibibyte = 1024.0 * 1024.0 * 1024.0;
const std::string shell(ExecSession::fallbackShellPath);

std::string execLine(const std::string& command) {
  return Json{{"op", "exec"}, {"command", command}}.dump() + '\n';
}

/// Reads a connection to its end, however much that is.
void drain(int fd) {
  const std::unique_ptr<char[]> buffer(new char[readSize]);
  while (readSome(fd, {buffer.get(), readSize}) > 0) {
  }
}

struct SocketPair {
  UniqueFD one;
  UniqueFD other;
};

SocketPair makeSocketPair() {
  int ends[2];
  socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends);
  return {UniqueFD(ends[0]), UniqueFD(ends[1])};
}

pid_t spawnShell(const std::string& command, int out) {
  const std::vector<std::string> args{"-c", command};
  return spawnGroupLeader(shell, args, processEnvironment(), STDIN_FILENO, out, STDERR_FILENO);
}

// --- Streaming -----------------------------------------------------------------------------------

const std::string flood = "head -c 1073741824 /dev/zero";

double streamThroughAgent(const AgentProcess& agent) {
  const Peer host = agent.connect();
  const double start = now();
  host.send(execLine(flood));
  drain(host.fd());
  return gibibyte / (now() - start);
}

/// The bare loop: reads what the agent reads, and writes it as it is.
void pumpBare(int from, int to) {
  const std::unique_ptr<char[]> buffer(new char[readSize]);
  ssize_t n = 0;
  while ((n = readSome(from, {buffer.get(), readSize})) > 0) {
    writeAll(to, {buffer.get(), static_cast<std::size_t>(n)});
  }
}

double streamThroughBareLoop() {
  SocketPair sockets = makeSocketPair();
  const double start = now();
  std::thread server([socket = std::move(sockets.other)] {
    System::Pipe pipe = System::makePipe();
    const pid_t pid = spawnShell(flood, pipe.writeEnd.get());
    pipe.writeEnd.reset();
    pumpBare(pipe.readEnd.get(), socket.get());
    waitpid(pid, nullptr, 0);
  });
  drain(sockets.one.get());
  server.join();
  return gibibyte / (now() - start);
}

void measureStreaming(const AgentProcess& agent, std::vector<Row>& rows) {
  streamThroughAgent(agent);
  const std::size_t before = agent.residentBytes();
  Samples agentRates;
  Samples bareRates;
  for (int i = 0; i < 5; ++i) {
    agentRates.add(streamThroughAgent(agent));
    bareRates.add(streamThroughBareLoop());
  }
  rows.push_back(rateRow("exec output of 1 GiB, beside a bare read and write loop",
                         agentRates.quantile(0.5), bareRates.quantile(0.5), 0.6));
  const auto grown = static_cast<double>(agent.residentBytes()) - static_cast<double>(before);
  rows.push_back(sizeRow("resident memory that 5 GiB of it add", grown, 2 * 1024.0 * 1024.0));
}

const std::string sink = "cat >/dev/null";

double feedThroughAgent(const AgentProcess& agent, const std::string& source) {
  const UniqueFD file(open(source.c_str(), O_RDONLY | O_CLOEXEC));  // NOLINT(*-vararg)
  const double start = now();
  const pid_t pid = spawnGroupLeader(
      TERVAINCTL_PATH,
      std::vector<std::string>{"--agent", "unix:" + agent.socket(), "exec", "--", sink},
      processEnvironment(), file.get(), STDOUT_FILENO, STDERR_FILENO);
  waitpid(pid, nullptr, 0);
  return gibibyte / (now() - start);
}

double feedThroughBareLoop(const std::string& source) {
  const UniqueFD file(open(source.c_str(), O_RDONLY | O_CLOEXEC));  // NOLINT(*-vararg)
  SocketPair sockets = makeSocketPair();
  System::Pipe pipe = System::makePipe();
  const double start = now();
  std::thread host(
      [&file, socket = std::move(sockets.one)] { pumpBare(file.get(), socket.get()); });
  const pid_t pid =
      spawnGroupLeader(shell, std::vector<std::string>{"-c", sink}, processEnvironment(),
                       pipe.readEnd.get(), STDOUT_FILENO, STDERR_FILENO);
  pumpBare(sockets.other.get(), pipe.writeEnd.get());
  pipe.writeEnd.reset();
  waitpid(pid, nullptr, 0);
  host.join();
  return gibibyte / (now() - start);
}

void measureFeeding(const AgentProcess& agent, std::vector<Row>& rows) {
  const test::TempDir dir;
  dir.write("source", "");
  std::filesystem::resize_file(dir.path("source"), std::uintmax_t{1} << 30U);  // all holes
  Samples agentRates;
  Samples bareRates;
  for (int i = 0; i < 5; ++i) {
    agentRates.add(feedThroughAgent(agent, dir.path("source")));
    bareRates.add(feedThroughBareLoop(dir.path("source")));
  }
  rows.push_back(rateRow("exec input of 1 GiB by tervainctl, beside a bare socket to pipe loop",
                         agentRates.quantile(0.5), bareRates.quantile(0.5), 0.5));
}

// --- Latency -------------------------------------------------------------------------------------

double execTrue(const AgentProcess& agent) {
  const double start = now();
  const Peer host = agent.connect();
  host.send(execLine("true"));
  drain(host.fd());
  return now() - start;
}

double spawnTrue() {
  const double start = now();
  waitpid(spawnShell("true", STDOUT_FILENO), nullptr, 0);
  return now() - start;
}

void measureExec(const AgentProcess& agent, std::vector<Row>& rows) {
  Samples execs;
  Samples spawns;
  for (int i = 0; i < 1000; ++i) {
    execs.add(execTrue(agent));
    spawns.add(spawnTrue());
  }
  rows.push_back(timesRow("exec of `true`, median, beside a bare spawn and wait",
                          execs.quantile(0.5), spawns.quantile(0.5), 1.5));
  rows.push_back(
      timesRow("exec of `true`, 99th percentile", execs.quantile(0.99), spawns.quantile(0.99), 2));
}

/// One round trip of a line and its answer.
double roundTrip(int fd, std::string_view line) {
  char answer[4096];
  const double start = now();
  writeAll(fd, line);
  while (answer[readSome(fd, answer) - 1] != '\n') {
  }
  return now() - start;
}

/// As long as this lives, the thread that made it may run on some processors only. What it starts
/// keeps to those that it had at the time.
class Placement {
 public:
  Placement() { sched_getaffinity(0, sizeof before_, &before_); }
  ~Placement() { sched_setaffinity(0, sizeof before_, &before_); }
  Placement(const Placement&) = delete;
  Placement& operator=(const Placement&) = delete;

  static void keepTo(int processor) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<unsigned>(processor), &one);
    sched_setaffinity(0, sizeof one, &one);
  }

  [[nodiscard]] std::vector<int> processors() const {
    std::vector<int> all;
    for (int i = 0; i < CPU_SETSIZE; ++i) {
      if (CPU_ISSET(static_cast<unsigned>(i), &before_)) {
        all.push_back(i);
      }
    }
    return all;
  }

 private:
  cpu_set_t before_{};
};

/// With both agent and echo on one processor, and the host on that or another: left to themselves
/// they would be moved about, each in its own way.
void measurePing(std::vector<Row>& rows, int guests, int hosts, const std::string& where,
                 double limit) {
  Placement::keepTo(guests);
  const AgentProcess agent;
  SocketPair sockets = makeSocketPair();
  std::thread echo([socket = std::move(sockets.other)] { pumpBare(socket.get(), socket.get()); });
  Placement::keepTo(hosts);
  const Peer host = agent.connect();
  Samples pings;
  Samples echoes;
  for (int i = 0; i < 20'000; ++i) {
    pings.add(roundTrip(host.fd(), "{\"op\":\"ping\"}\n"));
    echoes.add(roundTrip(sockets.one.get(), "{\"op\":\"ping\"}\n"));
  }
  sockets.one.reset();
  echo.join();
  rows.push_back(timesRow("ping without a desktop, median, beside a bare echo thread, " + where,
                          pings.quantile(0.5), echoes.quantile(0.5), limit));
}

void measurePings(std::vector<Row>& rows) {
  const Placement placement;
  const std::vector<int> processors = placement.processors();
  measurePing(rows, processors.front(), processors.front(), "on one processor", 1.1);
  // Waking a thread on another processor takes twice as long as all the rest of it.
  measurePing(rows, processors.front(), processors.back(), "on two processors", 1.4);
}

// --- Huge lines ----------------------------------------------------------------------------------

double processorTime(pid_t process) {
  clockid_t clock = 0;
  timespec time{};
  clock_getcpuclockid(process, &clock);
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// A line of 4 MiB that is a beginning, whatever `piece` makes of a number over and over, and an
/// end.
template <class Piece>
std::string hugeLine(std::string text, Piece piece, std::string_view end) {
  constexpr std::size_t size = 4'194'304;
  for (int i = 0; text.size() + 16 < size; ++i) {
    text += piece(i);
  }
  return text.append(end);
}

void measureHugeLines(std::vector<Row>& rows) {
  const auto same = [](const char* text) { return [text](int) { return text; }; };
  const std::string lines[] = {
      hugeLine(R"({"op":"foo","a":[)", same("{},"), "0]}"),
      hugeLine(R"({"op":"foo","a":)", same("["), "}"),
      hugeLine(R"({"op":")", same("/"), "\"}"),
      hugeLine(R"({"op":")", same("\\n"), "\x01\"}"),
      hugeLine(
          "{", [](int i) { return '"' + std::to_string(i) + "\":1,"; }, "\"a\":1}"),
      hugeLine(R"({"op":"foo","x":)", same("1"), "}")};
  double slowest = 0;
  double largest = 0;
  double kept = 0;
  for (const std::string& line : lines) {
    const AgentProcess agent;
    const auto idle = static_cast<double>(agent.residentBytes());
    const double before = processorTime(agent.pid());
    Peer host = agent.connect();
    host.ask(line);
    slowest = std::max(slowest, processorTime(agent.pid()) - before);
    largest = std::max(largest, static_cast<double>(agent.peakBytes()) - idle);
    kept = std::max(kept, static_cast<double>(agent.residentBytes()) - idle);
  }
  rows.push_back(timeRow("processor time of a line of 4 MiB, the worst of six", slowest, 0.1));
  rows.push_back(sizeRow("memory while it is dealt with", largest, 16 * 1024.0 * 1024.0));
  rows.push_back(sizeRow("memory that stays with its connection", kept, 2 * 1024.0 * 1024.0));
}

// --- Memory --------------------------------------------------------------------------------------

void measureMemory(std::vector<Row>& rows) {
  const AgentProcess agent;
  const auto idle = static_cast<double>(agent.residentBytes());
  rows.push_back(sizeRow("resident memory of an idle agent", idle, 12 * 1024.0 * 1024.0));
  std::vector<Peer> hosts;
  for (int i = 0; i < 1000; ++i) {
    hosts.push_back(agent.connect());
    hosts.back().ask(R"({"op":"ping"})");
  }
  rows.push_back(sizeRow("resident memory that 1,000 idle connections add",
                         static_cast<double>(agent.residentBytes()) - idle, 64 * 1024.0 * 1024.0));
}

void measureStreams(std::vector<Row>& rows) {
  const AgentProcess agent;
  measureStreaming(agent, rows);
  measureFeeding(agent, rows);
  measureExec(agent, rows);
}

/// All that is measured, or the named part of it.
int run(std::string_view wanted) {
  std::signal(SIGPIPE, SIG_IGN);
  const std::pair<std::string_view, void (*)(std::vector<Row>&)> parts[] = {
      {"streams", measureStreams},
      {"pings", measurePings},
      {"lines", measureHugeLines},
      {"memory", measureMemory}};
  std::vector<Row> rows;
  for (const auto& [name, measure] : parts) {
    if (wanted.empty() || wanted == name) {
      measure(rows);
    }
  }
  return printTable(rows) ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace
}  // namespace tervain::bench

int main(int argc, char** argv) {
  return tervain::bench::run(argc > 1 ? argv[1] : "");
}
