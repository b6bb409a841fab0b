// Starts a program with a listening Unix socket handed over the way service managers do it:
//
//   serve-unix SOCKET PROGRAM [ARGUMENT…]
//
// The socket's file must not exist yet; once it does, whoever connects is let in. The program takes
// this process's place.

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr int handedOver = 3;
constexpr int backlog = 128;

[[noreturn]] void fail(const char* what) {
  std::perror(what);
  std::exit(EXIT_FAILURE);
}

int listenOn(const std::string& path) {
  // A socket that has a name but does not listen yet refuses who comes, so it gets its name last.
  const std::string unready = path + "~";
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (unready.size() >= sizeof address.sun_path) {
    errno = ENAMETOOLONG;
    fail("serve-unix");
  }
  unready.copy(address.sun_path, unready.size());
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(fd, backlog) != 0) {
    fail("serve-unix");
  }
  if (access(path.c_str(), F_OK) == 0) {
    unlink(unready.c_str());
    errno = EADDRINUSE;
    fail("serve-unix");
  }
  if (rename(unready.c_str(), path.c_str()) != 0) {
    fail("serve-unix");
  }
  return fd;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fputs("usage: serve-unix SOCKET PROGRAM [ARGUMENT...]\n", stderr);
    return EXIT_FAILURE;
  }
  const int listening = listenOn(argv[1]);
  if (listening != handedOver && (dup2(listening, handedOver) < 0 || close(listening) != 0)) {
    fail("serve-unix");
  }
  setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
  setenv("LISTEN_FDS", "1", 1);
  execvp(argv[2], argv + 2);
  fail(argv[2]);
}
