#include "VMAgentCore/ExecOutput.h"

#include <fcntl.h>

#include "VMAgentCore/ExecFrames.h"
#include "VMAgentCore/IO.h"

namespace tervain {

ExecOutput::ExecOutput(int host) : host_(host), flags_(fcntl(host, F_GETFL)) {
  if (flags_ >= 0) {
    fcntl(host_, F_SETFL, flags_ | O_NONBLOCK);
  }
}

ExecOutput::~ExecOutput() {
  if (flags_ >= 0) {
    fcntl(host_, F_SETFL, flags_);
  }
}

void ExecOutput::send(std::string_view tag, std::string_view bytes) {
  ExecFrames::appendBytes(frames_, tag, bytes);
  flush();
}

void ExecOutput::sendExit(int code) {
  frames_ += ExecFrames::exit(code);
  flush();
}

void ExecOutput::flush() {
  std::string_view rest = std::string_view(frames_).substr(sent_);
  // That a host has gone is noticed where it is read from.
  const bool writable = writeSome(host_, rest);
  sent_ = frames_.size() - rest.size();
  if (!writable || rest.empty()) {
    frames_.clear();
    sent_ = 0;
  }
}

}  // namespace tervain
