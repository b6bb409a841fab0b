#include "Support/Server.h"

#include <fcntl.h>
#include <sys/wait.h>

#include <csignal>

#include "Support/Peer.h"
#include "VMAgentCore/SpawnGroupLeader.h"
#include "VMAgentCore/System.h"

namespace tervain::test {

Server::Server(const std::vector<std::string>& command,
               const std::map<std::string, std::string>& additions) {
  Environment environment = processEnvironment();
  for (const auto& [name, value] : additions) {
    environment[name] = value;
  }
  System::Pipe output = System::makePipe();
  const UniqueFD null(open("/dev/null", O_RDWR | O_CLOEXEC));
  pid_ = spawnGroupLeader(command.front(), std::span(command).subspan(1), environment, null.get(),
                          output.writeEnd.get(), null.get());
  output.writeEnd.reset();
  line_ = Peer(std::move(output.readEnd)).readLine().value_or("");
}

Server::~Server() {
  resume();
  kill(-pid_, SIGTERM);
  waitpid(pid_, nullptr, 0);
}

void Server::hang() const {
  kill(pid_, SIGSTOP);
}

void Server::resume() const {
  kill(pid_, SIGCONT);
}

}  // namespace tervain::test
