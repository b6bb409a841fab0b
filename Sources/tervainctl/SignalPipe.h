#pragma once

#include "VMAgentCore/System.h"

namespace tervain::ctl {

/// Turns the signals that ask a program to end into bytes on a pipe while it exists, each byte a
/// signal's number. A signal that is ignored stays ignored. One instance at a time.
class SignalPipe {
 public:
  /// Throws AgentError.
  SignalPipe();
  SignalPipe(const SignalPipe&) = delete;
  SignalPipe& operator=(const SignalPipe&) = delete;
  ~SignalPipe();

  [[nodiscard]] int readEnd() const { return pipe_.readEnd.get(); }

 private:
  System::Pipe pipe_ = System::makePipe();
};

}  // namespace tervain::ctl
