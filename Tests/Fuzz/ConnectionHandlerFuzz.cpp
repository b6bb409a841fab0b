// What a host sends to an agent on the scripted platform.
#include <sys/stat.h>
#include <unistd.h>

#include "Fuzz/Fuzz.h"
#include "Fuzz/Requests.h"
#include "ScriptedPlatform/ScriptedEvents.h"
#include "Support/ScriptedDesktop.h"
#include "Support/TempDir.h"
#include "VMAgentCore/ExecSession.h"
#include "VMAgentCore/Json.h"
#include "VMAgentCore/LineSplitBuffer.h"

using namespace tervain;

namespace {

/// A home to be in, with a folder "s" for events: whatever is asked for here must do no harm.
struct Home {
  Home() {
    setenv("HOME", dir.path().c_str(), 1);
    fuzz::require(chdir(dir.path().c_str()) == 0 && mkdir("s", 0700) == 0, "no folder for events");
    unsetenv("TERVAIN_DULK_DISABLE");
    fuzz::require(access(std::string(ExecSession::defaultDulkPath).c_str(), X_OK) != 0,
                  "this machine has an agent shell, which would run what the fuzzer comes up with");
    test::scriptDesktop();
  }
  test::TempDir dir;
};

/// Whether a host asks to look for events outside of the home of this test.
bool leavesHome(const std::vector<std::string_view>& pieces) {
  LineSplitBuffer lines;
  for (const std::string_view piece : pieces) {
    lines.append(piece);
  }
  while (const auto line = lines.next()) {
    const auto request = parseObject(*line);
    const std::string* dir = request ? stringMember(*request, "dir") : nullptr;
    if (dir && (dir->starts_with('/') || dir->find("..") != std::string::npos)) {
      return true;
    }
  }
  return false;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Home home;
  const auto pieces = fuzz::pieces(fuzz::textOf(data, size));
  if (!leavesHome(pieces)) {
    home.dir.write("s/1.jsonl", "{\"e\":1}\n");
    test::scriptedEvents().posted.clear();
    const fuzz::LeakCheck leaks;
    fuzz::serveRequests(pieces);
  }
  return 0;
}
