#pragma once

#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/vsock.h>

#include <cerrno>
#include <cstdint>

/// The address of a vsock port as Darwin lays it out: 12 bytes, the first of which says so.
inline sockaddr_vm vsockAddress(std::uint32_t cid, std::uint32_t port) {
  sockaddr_vm address{};
  static_assert(sizeof address == 12);
  address.svm_len = sizeof address;
  address.svm_family = AF_VSOCK;
  address.svm_port = port;
  address.svm_cid = cid;
  return address;
}

/// The context id under which a machine reaches itself, by any vsock socket: here its own, as 1 is
/// reserved. Gives 0 or a negated errno value.
inline int localCid(int fd, std::uint32_t& cid) {
  return ioctl(fd, IOCTL_VM_SOCKETS_GET_LOCAL_CID, &cid) == 0 ? 0 : -errno;
}
