#pragma once

#include <sys/socket.h>

// linux/vm_sockets.h needs sys/socket.h before it.
#include <linux/vm_sockets.h>

#include <cstdint>

/// The address of a vsock port as Linux lays it out: 16 bytes, no length member.
inline sockaddr_vm vsockAddress(std::uint32_t cid, std::uint32_t port) {
  sockaddr_vm address{};
  address.svm_family = AF_VSOCK;
  address.svm_port = port;
  address.svm_cid = cid;
  return address;
}

/// The context id under which a machine reaches itself, by any vsock socket. Gives 0.
inline int localCid(int /*fd*/, std::uint32_t& cid) {
  cid = VMADDR_CID_LOCAL;
  return 0;
}
