// What an application may answer on the accessibility bus: the requests of a host are answered in
// their turn and with JSON, whatever it says. In an input stand the windows of the application, the
// requests, and then its answers.
#include <sys/socket.h>

#include <array>
#include <csignal>
#include <iostream>
#include <thread>

#include "Fuzz/Fuzz.h"
#include "Fuzz/HostileApplication.h"
#include "Fuzz/ScriptedWindows.h"
#include "ScriptedPlatform/ScriptedStatus.h"
#include "TervainVMAgent/ConnectionHandler.h"
#include "VMAgentCore/IO.h"

using namespace tervain;

namespace {

X11::Window windowIn(fuzz::Bytes& input) {
  X11::Window window;
  window.pid = fuzz::HostileApplication::pid;
  window.place = {input.value<std::int16_t>(), input.value<std::int16_t>(),
                  input.value<std::uint16_t>(), input.value<std::uint16_t>()};
  const unsigned kind = input.byte();
  window.isManaged = (kind & 1U) != 0;
  if ((kind & 2U) != 0) {
    window.shadow = {input.value<std::uint16_t>(), input.value<std::uint16_t>(),
                     input.value<std::uint16_t>(), input.value<std::uint16_t>()};
  }
  window.title = "Save ";
  return window;
}

Json requestIn(fuzz::Bytes& input) {
  const unsigned kind = input.byte();
  const std::string ref = "e" + std::to_string(kind >> 3U);
  switch (kind & 7U) {
    case 0:
    case 1:
      return {{"op", "ax_action"}, {"ref", ref}};
    case 2:
      return {{"op", "ax_action"}, {"ref", ref}, {"action", "AXIncrement"}};
    case 3:
      return {{"op", "ax_action"}, {"ref", ref}, {"action", "AXRaise"}};
    case 4:
      return {{"op", "ax_set_value"}, {"ref", ref}, {"value", "7.5"}};
    case 5:
      return {{"op", "ax_focus"}, {"ref", ref}};
    default:
      return {{"op", "ax_element_at"},
              {"x", input.value<std::int16_t>()},
              {"y", input.value<std::int16_t>()}};
  }
}

struct Requests {
  std::string lines;
  int count = 0;
};

Requests requestsIn(fuzz::Bytes& input) {
  const unsigned counts = input.byte();
  auto& windows = fuzz::scriptedWindows();
  windows.clear();
  while (windows.size() < (counts & 3U)) {
    windows.push_back(windowIn(input));
  }
  Requests requests;
  const auto add = [&requests](const Json& request) {
    requests.lines += request.dump() + "\n";
    ++requests.count;
  };
  if ((counts & 4U) == 0) {
    add({{"op", "ax_dump"}, {"pid", fuzz::HostileApplication::pid}, {"maxDepth", input.byte()}});
  }
  for (unsigned left = counts >> 5U; left > 0; --left) {
    add(requestIn(input));
  }
  return requests;
}

/// Reads what the agent sends until it closes the connection, with the application at work.
std::string listen(int host, fuzz::HostileApplication& application, fuzz::Bytes& answers) {
  std::string heard;
  std::array<char, readSize> buffer;  // NOLINT(*-member-init): written before it is read
  for (;;) {
    application.serve(answers, host);
    const ssize_t n = readSome(host, buffer);
    if (n <= 0) {
      return heard;
    }
    heard.append(buffer.data(), static_cast<std::size_t>(n));
  }
}

void checkReplies(std::string_view heard, int expected) {
  LineSplitBuffer lines;
  lines.append(heard);
  int replies = 0;
  while (const auto line = lines.next()) {
    const auto reply = parseObject(*line);
    fuzz::require(reply && reply->contains("ok") && (*reply)["ok"].is_boolean(), "no reply");
    fuzz::require(reply->value("error", "") != "reply serialization failed", "no JSON");
    ++replies;
  }
  fuzz::require(replies == expected && lines.pendingBytes() == 0, "another number of replies");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static fuzz::HostileApplication application;
  std::signal(SIGPIPE, SIG_IGN);
  fuzz::Bytes input(fuzz::textOf(data, size));
  const Requests requests = requestsIn(input);
  const int before = fuzz::nextDescriptor();
  {
    int ends[2];
    fuzz::require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "no socket pair");
    const UniqueFD host(ends[0]);
    // A thread of its own has a connection to the bus of its own.
    std::thread agent(
        [socket = UniqueFD(ends[1])]() mutable { ConnectionHandler(std::move(socket)).run(); });
    fuzz::require(writeAll(host.get(), requests.lines), "requests that don't fit");
    shutdown(host.get(), SHUT_WR);
    const std::string heard = listen(host.get(), application, input);
    agent.join();
    checkReplies(heard, requests.count);
  }
  application.disconnect();
  fuzz::require(fuzz::nextDescriptor() == before, "a descriptor leaks");
  return 0;
}
