// The core's inner loops, each beside the least that could do its job.

#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "VMAgentCore/AgentWire.h"
#include "VMAgentCore/Base64/Base64.h"
#include "VMAgentCore/ExecFrames.h"
#include "VMAgentCore/IO.h"
#include "VMAgentCore/Json.h"
#include "VMAgentCore/LineSplitBuffer.h"

namespace tervain {
namespace {

std::string sampleBytes() {
  std::string bytes(readSize, '\0');
  unsigned value = 1;
  for (char& byte : bytes) {
    value = value * 1'103'515'245 + 12'345;
    byte = static_cast<char>(value >> 16U);
  }
  return bytes;
}

void countBytes(benchmark::State& state, std::size_t each) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(each));
}

/// The yardstick of all that touches a read's worth of bytes.
void copyOfARead(benchmark::State& state) {
  const std::string bytes = sampleBytes();
  std::vector<char> copy(bytes.size());
  for ([[maybe_unused]] auto _ : state) {
    std::memcpy(copy.data(), bytes.data(), bytes.size());
    benchmark::DoNotOptimize(copy.data());
    benchmark::ClobberMemory();
  }
  countBytes(state, bytes.size());
}
BENCHMARK(copyOfARead);

void outputFrameOfARead(benchmark::State& state) {
  const std::string bytes = sampleBytes();
  std::string frame;
  for ([[maybe_unused]] auto _ : state) {
    frame.clear();
    ExecFrames::appendBytes(frame, AgentWire::Exec::stdout_, bytes);
    benchmark::DoNotOptimize(frame.data());
  }
  countBytes(state, bytes.size());
}
BENCHMARK(outputFrameOfARead);

void frameOfAReadDecoded(benchmark::State& state) {
  const std::string bytes = sampleBytes();
  std::string frame;
  ExecFrames::appendBytes(frame, AgentWire::Exec::stdout_, bytes);
  frame.pop_back();
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(ExecFrames::payload(frame));
  }
  countBytes(state, bytes.size());
}
BENCHMARK(frameOfAReadDecoded);

void linesOfPings(benchmark::State& state) {
  std::string chunk;
  while (chunk.size() + 14 <= readSize) {
    chunk += "{\"op\":\"ping\"}\n";
  }
  LineSplitBuffer lines;
  for ([[maybe_unused]] auto _ : state) {
    lines.append(chunk);
    while (const auto line = lines.next()) {
      benchmark::DoNotOptimize(line->data());
    }
  }
  countBytes(state, chunk.size());
}
BENCHMARK(linesOfPings);

void requestParsed(benchmark::State& state) {
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(
        parseMembers(R"({"op":"click","x":100,"y":200,"count":2})", AgentWire::hostMembers));
  }
}
BENCHMARK(requestParsed);

}  // namespace
}  // namespace tervain
