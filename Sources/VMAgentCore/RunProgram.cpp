#include "VMAgentCore/RunProgram.h"

#include <fcntl.h>
#include <unistd.h>

#include "VMAgentCore/GroupLeader.h"
#include "VMAgentCore/IO.h"
#include "VMAgentCore/SpawnGroupLeader.h"
#include "VMAgentCore/System.h"

namespace tervain {

std::optional<ProgramResult> runProgram(const std::string& path, std::span<const std::string> args,
                                        const Environment& environment, Deadline deadline,
                                        ProgramErrors errors) {
  const UniqueFD nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
  System::Pipe pipe = System::makePipe();
  const int out = pipe.writeEnd.get();
  GroupLeader program(spawnGroupLeader(path, args, environment, nothing.get(), out,
                                       errors == ProgramErrors::kept ? out : STDERR_FILENO));
  pipe.writeEnd.reset();
  ProgramResult result{0, {}};
  if (!readToEnd(pipe.readEnd.get(), result.output, maxProgramOutput, deadline) ||
      !program.waitForEnd(deadline)) {
    return std::nullopt;
  }
  result.status = program.exit()->code;
  return result;
}

}  // namespace tervain
