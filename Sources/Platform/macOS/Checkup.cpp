#include "Platform/Checkup.h"

#include <ApplicationServices/ApplicationServices.h>
#include <sys/sysctl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <optional>
#include <sstream>

#include "Platform/macOS/CFRef.h"
#include "Platform/macOS/Launchd.h"
#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/RunProgram.h"

namespace tervain::Platform {
namespace {

constexpr const char* bundle = "/Applications/TervainVMAgent.app";
constexpr const char* restart = "launchctl kickstart -k gui/$(id -u)/com.tervain.vmagent";
constexpr const char* reinstall = "in the unpacked archive: sudo share/tervain-vm-agent/install";

/// How long a program of the system's is waited for.
constexpr std::chrono::seconds patience{5};

/// Nothing when the program can't be started or hangs.
std::optional<ProgramResult> run(const char* program, const std::vector<std::string>& args) try {
  return runProgram(program, args, processEnvironment(), after(patience));
} catch (const AgentError&) {
  return std::nullopt;
}

std::string firstLine(const std::string& text) {
  return text.substr(0, text.find('\n'));
}

/// Nothing when launchd has no such job in this user's session.
std::optional<LaunchdJob> agentJob() {
  const auto printed =
      run("/bin/launchctl", {"print", "gui/" + std::to_string(getuid()) + "/com.tervain.vmagent"});
  return printed && printed->status == 0 ? std::optional(parseLaunchdJob(printed->output))
                                         : std::nullopt;
}

std::optional<kinfo_proc> processOf(pid_t pid) {
  int name[] = {CTL_KERN, KERN_PROC, KERN_PROC_PID, pid};
  kinfo_proc info{};
  std::size_t size = sizeof info;
  const bool known = sysctl(name, std::size(name), &info, &size, nullptr, 0) == 0 && size > 0;
  return known ? std::optional(info) : std::nullopt;
}

/// What is started by another program is judged by that program's grants.
Finding examineWhoAsks() {
  constexpr std::string_view subject = "asked by";
  std::string name;
  for (pid_t parent = getppid(); parent > 1;) {
    const auto process = processOf(parent);
    if (!process) {
      break;
    }
    name = process->kp_proc.p_comm;
    if (name == "TervainVMAgent") {
      return fine(subject, "the agent, process " + std::to_string(parent));
    }
    parent = process->kp_eproc.e_ppid;
  }
  if (name.empty()) {
    return fine(subject, "launchd");
  }
  return unsure(subject, name + ", whose grants macOS may be telling below",
                "tervainctl exec '/Applications/TervainVMAgent.app/Contents/MacOS/TervainVMAgent "
                "--check'");
}

Finding examineJob(const std::optional<LaunchdJob>& job) {
  constexpr std::string_view subject = "launchd";
  if (!job) {
    return wrong(subject, "no job of the agent in this user's session", reinstall);
  }
  std::string seen = job->state;
  if (job->pid) {
    seen += ", process " + std::to_string(*job->pid);
  }
  if (!job->lastExit.empty()) {
    seen += ", last exit code " + job->lastExit;
  }
  return job->pid ? fine(subject, std::move(seen))
                  : wrong(subject, std::move(seen),
                          std::string("tail ~/Library/Logs/TervainVMAgent/agent.log; ") + restart);
}

Finding examineSignature() {
  constexpr std::string_view subject = "signature";
  const auto verified = run("/usr/bin/codesign", {"--verify", "--strict", bundle});
  if (!verified) {
    return unsure(subject, "codesign does not answer");
  }
  return verified->status == 0 ? fine(subject, std::string("holds for ") + bundle)
                               : wrong(subject, firstLine(verified->output), reinstall);
}

Finding examineQuarantine() {
  constexpr std::string_view subject = "quarantine";
  const bool marked = getxattr(bundle, "com.apple.quarantine", nullptr, 0, 0, 0) >= 0;
  return marked ? wrong(subject, std::string(bundle) + " is marked as downloaded",
                        std::string("sudo xattr -dr com.apple.quarantine ") + bundle)
                : fine(subject, "none");
}

/// What the database of grants has for the agent, which only few may read, and whether the agent
/// has been started since: what it was told of its grants it does not ask again.
Finding examineRows(const std::optional<LaunchdJob>& job) {
  constexpr std::string_view subject = "rows of grants";
  constexpr const char* database = "/Library/Application Support/com.apple.TCC/TCC.db";
  constexpr const char* query =
      "SELECT service, auth_value, last_modified FROM access WHERE client = 'com.tervain.vmagent' "
      "AND service IN ('kTCCServiceAccessibility', 'kTCCServicePostEvent', "
      "'kTCCServiceScreenCapture')";
  const auto read = run("/usr/bin/sqlite3", {"-readonly", "-separator", " ", database, query});
  if (!read || read->status != 0) {
    return unsure(subject, "can't be read; that takes Full Disk Access");
  }
  constexpr int allowed = 2;
  std::istringstream rows(read->output);
  std::string seen;
  std::string service;
  int value = 0;
  std::time_t newest = 0;
  bool denied = false;
  for (std::time_t time = 0; rows >> service >> value >> time;) {
    newest = std::max(newest, time);
    denied = denied || value != allowed;
    seen += (seen.empty() ? "" : ", ") + service + (value == allowed ? "" : " denied");
  }
  if (seen.empty()) {
    return wrong(subject, "none for com.tervain.vmagent",
                 "in the unpacked archive: sudo share/tervain-vm-agent/install --grant; or System "
                 "Settings, Privacy & Security");
  }
  if (denied) {
    return wrong(subject, seen, "sudo tccutil reset All com.tervain.vmagent; give them again");
  }
  const auto process = job && job->pid ? processOf(*job->pid) : std::nullopt;
  if (process && process->kp_proc.p_starttime.tv_sec < newest) {
    return wrong(subject, seen + "; given after the agent's start", restart);
  }
  return fine(subject, seen);
}

/// What is documented as a boolean, and what the others are, which are not documented.
bool isTrue(CFDictionaryRef dictionary, CFStringRef key) {
  const CFTypeRef value = CFDictionaryGetValue(dictionary, key);
  int number = 0;
  if (const auto* const counted = cfCast<CFNumberRef>(value)) {
    CFNumberGetValue(counted, kCFNumberIntType, &number);
  }
  const auto* const boolean = cfCast<CFBooleanRef>(value);
  return number != 0 || (boolean && CFBooleanGetValue(boolean) != 0);
}

}  // namespace

Environment serviceEnvironment() {
  const auto job = agentJob();
  Environment environment = job ? job->environment : Environment();
  // It says which job a process is, and we are not that one.
  environment.erase("XPC_SERVICE_NAME");
  return environment;
}

std::vector<Finding> examineInstallation() {
  const auto job = agentJob();
  return {examineJob(job), examineSignature(), examineQuarantine(), examineRows(job),
          examineWhoAsks()};
}

std::vector<Finding> examineSession() {
  constexpr std::string_view subject = "session";
  const auto session = CFRef<CFDictionaryRef>::adopt(CGSessionCopyCurrentDictionary());
  if (!session) {
    return {wrong(subject, "this user has no desktop",
                  "log in on the screen; at each boot: System Settings, Users & Groups, "
                  "Automatically log in as")};
  }
  if (!isTrue(session.get(), kCGSessionOnConsoleKey)) {
    return {wrong(subject, "another user has the screen", "log that user out")};
  }
  // The key is not in the headers. Where it is missing the screen is taken for unlocked.
  if (isTrue(session.get(), CFSTR("CGSSessionScreenIsLocked"))) {
    return {wrong(subject, "the screen is locked",
                  "unlock it; for good: sysadminctl -screenLock off -password PASSWORD")};
  }
  return {fine(subject, "user " + std::to_string(getuid()) + " has the screen, unlocked")};
}

std::string_view remedyFor(Trouble trouble) {
  switch (trouble) {
    case Trouble::noDisplay:
      return "give the virtual machine a display (VZMacGraphicsDeviceConfiguration)";
    case Trouble::noAccessibility:
    case Trouble::noPostEvent:
      return "sudo share/tervain-vm-agent/install --grant; or System Settings, Privacy & Security, "
             "Accessibility: add "
             "/Applications/TervainVMAgent.app; then launchctl kickstart -k "
             "gui/$(id -u)/com.tervain.vmagent";
    case Trouble::noScreenRecording:
      return "sudo share/tervain-vm-agent/install --grant; or System Settings, Privacy & Security, "
             "Screen & System Audio "
             "Recording: add /Applications/TervainVMAgent.app; then launchctl kickstart -k "
             "gui/$(id -u)/com.tervain.vmagent";
    case Trouble::noPicture:
      return "wake the display (caffeinate -u -t 1) and answer what is asked on it; pmset "
             "displaysleep 0; if it stays so, log in again";
    case Trouble::stuckPointer:
      return "give Accessibility anew; some virtual machines lose such events";
    case Trouble::noShell:
      return "install the agent shell as /usr/local/bin/dulk, or sudo "
             "share/tervain-vm-agent/install --env TERVAIN_DULK_DISABLE=1";
    case Trouble::noVsock:
      return "give the virtual machine a vsock device (VZVirtioSocketDeviceConfiguration); ports "
             "below 1024 are root's";
    case Trouble::portTaken:
      return "log out other users, end what has the port, or choose another: sudo "
             "share/tervain-vm-agent/install --env TERVAIN_AGENT_PORT=2036";
    case Trouble::nobodyListens:
      return "launchctl kickstart -k gui/$(id -u)/com.tervain.vmagent";
  }
  return {};
}

}  // namespace tervain::Platform
