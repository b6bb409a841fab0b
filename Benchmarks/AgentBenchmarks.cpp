// The whole executable beside yardsticks that do the bare minimum of the same work, in the same run
// and alternating with it, so that both meet the same machine.

#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdio>
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
                         agentRates.quantile(0.5), bareRates.quantile(0.5), 0.5));
  const auto grown = static_cast<double>(agent.residentBytes()) - static_cast<double>(before);
  rows.push_back(sizeRow("resident memory that 5 GiB of it add", grown, 2 * 1024.0 * 1024.0));
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

/// As long as this lives, the thread that made it and all that it starts share one processor.
class OneProcessor {
 public:
  OneProcessor() {
    sched_getaffinity(0, sizeof before_, &before_);
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<unsigned>(sched_getcpu()), &one);
    sched_setaffinity(0, sizeof one, &one);
  }
  ~OneProcessor() { sched_setaffinity(0, sizeof before_, &before_); }
  OneProcessor(const OneProcessor&) = delete;
  OneProcessor& operator=(const OneProcessor&) = delete;

 private:
  cpu_set_t before_{};
};

void measurePing(std::vector<Row>& rows) {
  // Waking a thread on another processor takes twice as long as all the rest of it, and which of
  // the two has to is the scheduler's whim.
  const OneProcessor shared;
  const AgentProcess agent;
  SocketPair sockets = makeSocketPair();
  std::thread echo([socket = std::move(sockets.other)] { pumpBare(socket.get(), socket.get()); });
  const Peer host = agent.connect();
  Samples pings;
  Samples echoes;
  for (int i = 0; i < 20'000; ++i) {
    pings.add(roundTrip(host.fd(), "{\"op\":\"ping\"}\n"));
    echoes.add(roundTrip(sockets.one.get(), "{\"op\":\"ping\"}\n"));
  }
  sockets.one.reset();
  echo.join();
  rows.push_back(timesRow("ping without a desktop, median, beside a bare echo thread",
                          pings.quantile(0.5), echoes.quantile(0.5), 1.5));
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

int run() {
  std::signal(SIGPIPE, SIG_IGN);
  std::vector<Row> rows;
  const AgentProcess agent;
  measureStreaming(agent, rows);
  measureExec(agent, rows);
  measurePing(rows);
  measureMemory(rows);
  return printTable(rows) ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace
}  // namespace tervain::bench

int main() {
  return tervain::bench::run();
}
