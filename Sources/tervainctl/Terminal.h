#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "VMAgentClient/AgentAddress.h"
#include "VMAgentClient/GuestShell.h"
#include "VMAgentCore/System.h"

namespace tervain::ctl {

/// The size of the terminal on standard input; nothing if there is none, or none that knows.
std::optional<GuestShell::Size> terminalSize();

/// Has the terminal on standard input pass everything on as it is typed, while this exists. Signals
/// that end the process restore it first.
class RawTerminal {
 public:
  /// Throws AgentError.
  RawTerminal();
  ~RawTerminal() { restore(); }
  RawTerminal(const RawTerminal&) = delete;
  RawTerminal& operator=(const RawTerminal&) = delete;

  /// Makes the terminal what it was, if it is not. A signal's handler may call it.
  static void restore();
};

/// Gives a terminal in the guest each new size of ours, while it exists. It does so on a thread of
/// its own, by a command on a connection of its own: the protocol knows of no terminals. One
/// instance at a time.
class WindowSize {
 public:
  /// `sent` is the size that the guest's terminal has been made with. Throws AgentError.
  WindowSize(AgentAddress agent, std::optional<GuestShell::Size> sent);
  ~WindowSize();
  WindowSize(const WindowSize&) = delete;
  WindowSize& operator=(const WindowSize&) = delete;

  /// Tells which terminal it is. Until then no size is sent.
  void setTerminal(std::string path);

 private:
  void run();
  void sendNew();

  AgentAddress agent_;
  std::optional<GuestShell::Size> sent_;
  System::Pipe pipe_ = System::makePipe();
  std::mutex mutex_;  // guards what follows
  std::string terminal_;
  std::thread thread_;
};

}  // namespace tervain::ctl
