#pragma once

#include <sys/socket.h>
#include <sys/vsock.h>

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
