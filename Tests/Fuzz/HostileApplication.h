#pragma once

#include <sys/types.h>

#include <deque>
#include <string>
#include <thread>

#include "VMAgentCore/System.h"

namespace tervain::fuzz {

/// An accessibility bus, its registry, and one application on it that answers, on a thread of its
/// own, what an input tells it to. The bus is honest, the application is not.
///
/// Every answer is a line, of words with a space between them. They are the values of what an
/// honest application would answer; an array goes on to the end of its line. Some are special:
///
///     *9 WORD...        first: the words that follow, nine times over
///     ~9                nine letters, after a slash
///     #                 a path unlike any before
///     $                 the address of the bus
///
/// And so are some lines. After the last one the application knows nothing any more, so that every
/// walk comes to an end.
///
///     =TYPES WORD...    values of other types than asked for
///     ?NAME             the error org.freedesktop.DBus.Error.NAME
///     +LINE             a signal, then the answer that the line is
///     !                 the application goes away
class HostileApplication {
 public:
  static constexpr pid_t pid = 42;

  /// Opens the bus, for all applications, and puts its address into the environment.
  static void openBus();

  explicit HostileApplication(std::deque<std::string> answers);
  ~HostileApplication();
  HostileApplication(const HostileApplication&) = delete;
  HostileApplication& operator=(const HostileApplication&) = delete;

 private:
  System::Pipe end_ = System::makePipe();  // told by closing it
  std::thread thread_;
};

}  // namespace tervain::fuzz
