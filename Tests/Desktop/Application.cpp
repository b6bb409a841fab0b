#include "Desktop/Application.h"

#include <fcntl.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "VMAgentCore/Environment.h"
#include "VMAgentCore/SpawnGroupLeader.h"

namespace tervain::test {

std::map<std::string, std::string> desktopEnvironment() {
  std::map<std::string, std::string> environment;
  for (const char* name : {"DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR"}) {
    const char* value = std::getenv(name);
    environment[name] = value ? value : "";
  }
  return environment;
}

Application::Application(const std::vector<std::string>& command) {
  const auto open = [](const std::string& path, int flags) {
    return UniqueFD(::open(path.c_str(), flags | O_CLOEXEC, 0600));
  };
  const UniqueFD null = open("/dev/null", O_RDWR);
  const UniqueFD out = open(dir_.path("out"), O_WRONLY | O_CREAT | O_APPEND);
  // env finds the program and makes way for it.
  pid_ = spawnGroupLeader("/usr/bin/env", command, processEnvironment(), null.get(), out.get(),
                          null.get());
}

Application::~Application() {
  if (!status_) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
}

void Application::signal(int number) const {
  kill(pid_, number);
}

std::optional<int> Application::waitForEnd() {
  int status = 0;
  if (!status_ && eventually([&] { return waitpid(pid_, &status, WNOHANG) == pid_; })) {
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  return status_;
}

std::string Application::output() const {
  std::ostringstream text;
  text << std::ifstream(dir_.path("out")).rdbuf();
  return text.str();
}

std::vector<const Json*> nodesOf(const Json& tree) {
  std::vector<const Json*> nodes{&tree};
  const auto children = tree.is_object() ? tree.find("children") : tree.end();
  if (children != tree.end()) {
    for (const Json& child : *children) {
      const auto below = nodesOf(child);
      nodes.insert(nodes.end(), below.begin(), below.end());
    }
  }
  return nodes;
}

const Json* findNode(const Json& tree, const std::string& role, const std::string& text) {
  for (const Json* node : nodesOf(tree)) {
    if (node->is_object() && node->value("role", "") == role &&
        (text.empty() || node->value("title", "") == text || node->value("value", "") == text)) {
      return node;
    }
  }
  return nullptr;
}

Json dumpWith(Peer& host, const Application& application, const std::string& role,
              const std::string& text) {
  Json tree;
  const std::string request =
      R"({"op":"ax_dump","maxDepth":25,"pid":)" + std::to_string(application.pid()) + "}";
  const bool found = eventually([&] {
    tree = host.ask(request)["tree"];
    return findNode(tree, role, text) != nullptr;
  });
  return found ? tree : Json();
}

Json act(Peer& host, const std::string& op, const Json& node, Json more) {
  more["op"] = op;
  more["ref"] = node["ref"];
  return host.ask(more.dump());
}

Json hitMiddle(Peer& host, const Json& node) {
  const Json& frame = node["frame"];
  return host.ask(Json{{"op", "ax_element_at"},
                       {"x", frame["x"].get<int>() + frame["w"].get<int>() / 2},
                       {"y", frame["y"].get<int>() + frame["h"].get<int>() / 2}}
                      .dump());
}

}  // namespace tervain::test
