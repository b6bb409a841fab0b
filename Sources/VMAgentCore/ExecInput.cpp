#include "VMAgentCore/ExecInput.h"

#include <fcntl.h>

#include <string_view>
#include <utility>

#include "VMAgentCore/IO.h"
#include "VMAgentCore/System.h"

namespace tervain {
namespace {

/// Chunks are filled up to this size, so that input of many small frames takes no more memory and
/// no more writes than that of few large ones.
constexpr std::size_t chunkSize = 65'536;

}  // namespace

ExecInput::ExecInput(UniqueFD pipe) : pipe_(std::move(pipe)) {
  System::suppressSigpipe(pipe_.get());
  const int flags = fcntl(pipe_.get(), F_GETFL);
  if (flags < 0 || fcntl(pipe_.get(), F_SETFL, flags | O_NONBLOCK) != 0) {
    close();
  }
}

void ExecInput::add(std::string bytes) {
  if (ended_ || !pipe_ || bytes.empty()) {
    return;
  }
  size_ += bytes.size();
  if (!chunks_.empty() && chunks_.back().size() + bytes.size() <= chunkSize) {
    chunks_.back() += bytes;
  } else {
    chunks_.push_back(std::move(bytes));
  }
}

void ExecInput::end() {
  ended_ = true;
  flush();
}

void ExecInput::flush() {
  while (!chunks_.empty()) {
    std::string_view rest = std::string_view(chunks_.front()).substr(written_);
    if (!writeSome(pipe_.get(), rest)) {
      return close();  // the command has closed its end
    }
    const std::size_t written = chunks_.front().size() - rest.size();
    size_ -= written - std::exchange(written_, written);
    if (rest.empty()) {
      chunks_.pop_front();
      written_ = 0;
    } else if (std::exchange(widened_, true)) {
      return;
    } else {
      System::widen(pipe_.get());
    }
  }
  if (ended_) {
    pipe_.reset();
  }
}

void ExecInput::close() {
  pipe_.reset();
  chunks_.clear();
  written_ = size_ = 0;
}

pollfd ExecInput::pollEntry() const {
  return {chunks_.empty() ? -1 : pipe_.get(), POLLOUT, 0};
}

}  // namespace tervain
