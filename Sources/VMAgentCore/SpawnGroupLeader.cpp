#include "VMAgentCore/SpawnGroupLeader.h"

#include <spawn.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <vector>

#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/System.h"

namespace tervain {
namespace {

/// Throws when one of the calls that prepare a spawn has failed, as each may for want of memory:
/// the child must not start with other streams than its own.
void require(int error) {
  if (error != 0) {
    throw AgentError::posix("posix_spawn", error);
  }
}

class SpawnAttributes {
 public:
  SpawnAttributes() { require(posix_spawnattr_init(&value)); }
  ~SpawnAttributes() { posix_spawnattr_destroy(&value); }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;

  posix_spawnattr_t value{};
};

class FileActions {
 public:
  FileActions() { require(posix_spawn_file_actions_init(&value)); }
  ~FileActions() { posix_spawn_file_actions_destroy(&value); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;

  posix_spawn_file_actions_t value{};
};

/// We ignore SIGPIPE, and an ignored signal stays ignored across exec: without this,
/// `yes | head` would end with an error message instead of silently.
void restoreSigpipe(posix_spawnattr_t& attributes) {
  sigset_t defaults;
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGPIPE);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
}

/// The null-terminated array of C strings that exec wants. It borrows the strings.
std::vector<char*> pointers(std::vector<std::string>& strings) {
  std::vector<char*> result;
  result.reserve(strings.size() + 1);
  for (std::string& string : strings) {
    result.push_back(string.data());
  }
  result.push_back(nullptr);
  return result;
}

/// A C string would end in the middle of such a text: another command than was meant would run.
void requireNoNUL(std::span<const std::string> texts) {
  for (const std::string& text : texts) {
    require(text.find('\0') == std::string::npos ? 0 : EINVAL);
  }
}

/// `flags` are those of the attributes that only one kind of child has.
pid_t spawn(const std::string& path, std::span<const std::string> args,
            const Environment& environment, const std::array<int, 3>& streams, short flags) {
  std::vector<std::string> argv{path};
  argv.insert(argv.end(), args.begin(), args.end());
  std::vector<std::string> envp;
  envp.reserve(environment.size());
  for (const auto& [key, value] : environment) {
    envp.emplace_back(key).append("=").append(value);
  }
  requireNoNUL(argv);
  requireNoNUL(envp);

  FileActions actions;
  for (int fd = 0; const int stream : streams) {
    require(posix_spawn_file_actions_adddup2(&actions.value, stream, fd++));
  }
  SpawnAttributes attributes;
  restoreSigpipe(attributes.value);
  require(System::inheritOnlyStandardStreams(
      attributes.value, static_cast<short>(flags | POSIX_SPAWN_SETSIGDEF), actions.value));

  pid_t pid = -1;
  require(posix_spawn(&pid, path.c_str(), &actions.value, &attributes.value, pointers(argv).data(),
                      pointers(envp).data()));
  return pid;
}

}  // namespace

pid_t spawnGroupLeader(const std::string& path, std::span<const std::string> args,
                       const Environment& environment, int stdinFD, int stdoutFD, int stderrFD) {
  return spawn(path, args, environment, {stdinFD, stdoutFD, stderrFD}, POSIX_SPAWN_SETPGROUP);
}

pid_t spawnInOurGroup(const std::string& path, std::span<const std::string> args,
                      const Environment& environment, int stdinFD, int stdoutFD, int stderrFD) {
  return spawn(path, args, environment, {stdinFD, stdoutFD, stderrFD}, 0);
}

void reap(pid_t child) {
  while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace tervain
