#include "Support/Peer.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "CVsock/cvsock.h"
#include "Support/Sockets.h"
#include "VMAgentCore/Base64/Base64.h"
#include "VMAgentCore/IO.h"

namespace tervain::test {

namespace {

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return address;
}

}  // namespace

UniqueFD listenAt(const std::string& path) {
  const sockaddr_un address = addressOf(path);
  UniqueFD socket = unixSocket();
  if (bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(socket.get(), SOMAXCONN) != 0) {
    throw std::system_error(errno, std::generic_category(), path);
  }
  return socket;
}

Peer Peer::connect(const std::string& path) {
  const sockaddr_un address = addressOf(path);
  UniqueFD socket;
  eventually([&] {
    socket = unixSocket();
    return ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
           0;
  });
  return Peer(std::move(socket));
}

Peer Peer::connect(std::uint32_t vsockPort) {
  std::uint32_t thisMachine = 0;
  tervain_vsock_local_cid(&thisMachine);
  UniqueFD socket;
  eventually([&] {
    socket.reset(tervain_vsock_connect(thisMachine, vsockPort));
    return static_cast<bool>(socket);
  });
  return Peer(std::move(socket));
}

bool Peer::send(std::string_view bytes) const {
  return writeAll(fd_.get(), bytes);
}

std::optional<std::string> Peer::readLine() {
  std::array<char, readSize> buffer;  // NOLINT(*-member-init): written before it is read
  for (;;) {
    if (const auto line = lines_.next()) {
      return std::string(*line);
    }
    pollfd ready{fd_.get(), POLLIN, 0};
    if (!waitForEvents({&ready, 1}, after(patience))) {
      return std::nullopt;
    }
    const ssize_t n = readSome(fd_.get(), buffer);
    if (n <= 0) {
      ended_ = true;
      return std::nullopt;
    }
    lines_.append({buffer.data(), static_cast<std::size_t>(n)});
  }
}

Json Peer::readJson() {
  const auto line = readLine();
  return line ? Json::parse(*line, nullptr, false) : Json();
}

Json Peer::ask(std::string_view request) {
  send(std::string(request) + '\n');
  return readJson();
}

bool Peer::closed() {
  return !readLine() && ended_ && lines_.pendingBytes() == 0;
}

ScriptedPeer::ScriptedPeer(std::function<void(Peer&)> script) {
  auto [ours, agent] = socketPair();
  host = std::move(ours);
  done_ = std::async(std::launch::async,
                     [script = std::move(script), peer = Peer(std::move(agent))]() mutable {
                       script(peer);
                       peer.close();
                     });
}

ExecResult readExec(Peer& peer) {
  ExecResult result;
  for (Json frame = peer.readJson(); frame.is_object(); frame = peer.readJson()) {
    const std::string tag = frame.value("t", "");
    if (tag == "o" || tag == "e") {
      (tag == "o" ? result.out : result.err) += decodeBase64(frame.value("d", "")).value_or("?");
    } else if (tag == "x") {
      result.code = frame.value("code", -1000);
    } else if (tag == "err") {
      result.error = frame.value("m", "");
    }
  }
  return result;
}

std::string stdinFrame(std::string_view bytes) {
  std::string line = R"({"t":"i","d":")";
  appendBase64(line, bytes);
  return line + "\"}\n";
}

}  // namespace tervain::test
