#pragma once

#include <string>

#include "Platform/Linux/Launch/GObjects.h"

/// Which of the desktop entries a name means.
namespace tervain::Linux {

/// The entry that a name fits best. A name fits an entry, the best first, as
/// 1. its identifier, exactly;
/// 2. its identifier;
/// 3. its name, in the user's language or as it stands there without one;
/// 4. what follows the last "." of its identifier;
/// 5. its program, if the command gives that nothing but what is to be opened;
/// 6. its program, if the command gives that nothing but options besides;
/// 7. its window class.
/// From 2 on neither case nor the way a character is composed matters, nor the dots of an i. Where
/// several fit alike, it is the one whose identifier comes first, by its bytes. From 3 on entries
/// that are not to be shown don't count. A part of any of these is no name, nor is an empty one.
///
/// The name counts as it is, then without ".desktop", then without ".app" at its end. Null if it
/// fits none.
Owned<GDesktopAppInfo> findEntry(const std::string& name);

/// The identifier of an entry, without ".desktop".
std::string idOf(GDesktopAppInfo* entry);

/// The command of an entry, as it stands there. Empty if it has none.
std::string commandOf(GDesktopAppInfo* entry);

/// The program that a command runs.
struct CommandProgram {
  enum class Arguments { none, options, others };

  std::string path;                         ///< or its name alone; empty if there is none
  Arguments arguments = Arguments::others;  ///< what it gets besides what is to be opened
};
CommandProgram programIn(const std::string& command);

}  // namespace tervain::Linux
