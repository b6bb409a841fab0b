#include "Support/Program.h"

#include <fcntl.h>
#include <sys/wait.h>

#include <csignal>
#include <fstream>
#include <sstream>

#include "VMAgentCore/SpawnGroupLeader.h"
#include "VMAgentCore/UniqueFD.h"

namespace tervain::test {

Program::Program(std::vector<std::string> command, const Environment& environment, Errors errors) {
  if (command.front().find('/') == std::string::npos) {
    command.front().insert(0, "/usr/bin/");
  }
  const UniqueFD null(open("/dev/null", O_RDWR | O_CLOEXEC));
  const UniqueFD out(
      open(dir_.path("out").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  pid_ = spawnGroupLeader(command.front(), std::span(command).subspan(1), environment, null.get(),
                          out.get(), errors == Errors::kept ? out.get() : null.get());
}

Program::~Program() {
  if (!status_) {
    kill(-pid_, SIGTERM);
    kill(-pid_, SIGCONT);
    if (!waitForEnd()) {
      kill(-pid_, SIGKILL);
      waitForEnd();
    }
  }
}

void Program::signal(int number) const {
  kill(pid_, number);
}

std::optional<int> Program::waitForEnd(Clock::duration limit) {
  int status = 0;
  if (!status_ && eventually([&] { return waitpid(pid_, &status, WNOHANG) != 0; }, limit)) {
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  return status_;
}

std::string Program::output() const {
  return textOf(dir_.path("out"));
}

std::string Program::line() const {
  std::string text;
  const auto whole = [&] { return (text = output()).find('\n') != std::string::npos; };
  return eventually(whole) ? text.substr(0, text.find('\n')) : "";
}

std::string textOf(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

}  // namespace tervain::test
