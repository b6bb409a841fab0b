#include "CVsock/cvsock.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "vsock_address.h"

namespace {

int openStreamSocket() {
  const int fd = socket(AF_VSOCK, SOCK_STREAM, 0);
  if (fd < 0) {
    return -errno;
  }
  fcntl(fd, F_SETFD, FD_CLOEXEC);
  return fd;
}

int closeAfterFailure(int fd) {
  const int saved = errno;
  close(fd);
  return -saved;
}

const sockaddr* generic(const sockaddr_vm& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

}  // namespace

int tervain_vsock_listen(std::uint32_t port, std::int32_t backlog) {
  const int fd = openStreamSocket();
  if (fd < 0) {
    return fd;
  }
  const sockaddr_vm address = vsockAddress(VMADDR_CID_ANY, port);
  if (bind(fd, generic(address), sizeof address) != 0 || listen(fd, backlog) != 0) {
    return closeAfterFailure(fd);
  }
  return fd;
}

int tervain_vsock_local_cid(std::uint32_t* cid) {
  const int fd = openStreamSocket();
  if (fd < 0) {
    return fd;
  }
  const int result = localCid(fd, *cid);
  close(fd);
  return result;
}

int tervain_vsock_connect(std::uint32_t cid, std::uint32_t port) {
  const int fd = openStreamSocket();
  if (fd < 0) {
    return fd;
  }
  const sockaddr_vm address = vsockAddress(cid, port);
  if (connect(fd, generic(address), sizeof address) != 0) {
    return closeAfterFailure(fd);
  }
  return fd;
}
