#pragma once

#include <unistd.h>

#include <utility>

namespace tervain {

/// Owns a file descriptor and closes it. Holds -1 when it owns none.
class UniqueFD {
 public:
  UniqueFD() = default;
  explicit UniqueFD(int fd) : fd_(fd) {}
  UniqueFD(UniqueFD&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  UniqueFD& operator=(UniqueFD&& other) noexcept {
    reset(std::exchange(other.fd_, -1));
    return *this;
  }
  UniqueFD(const UniqueFD&) = delete;
  UniqueFD& operator=(const UniqueFD&) = delete;
  ~UniqueFD() { reset(); }

  [[nodiscard]] int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }

  /// Closes what it owns and takes over `fd`.
  void reset(int fd = -1) {
    const int old = std::exchange(fd_, fd);
    if (old >= 0) {
      close(old);
    }
  }

  /// Gives the descriptor up to the caller.
  [[nodiscard]] int release() { return std::exchange(fd_, -1); }

 private:
  int fd_ = -1;
};

}  // namespace tervain
