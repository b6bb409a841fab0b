#include "Platform/Checkup.h"

#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <system_error>
#include <thread>

#include "Platform/Linux/Accessibility/Bus.h"
#include "Platform/Linux/X11/Session.h"
#include "Platform/Linux/X11/Windows.h"
#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/OwnPath.h"
#include "VMAgentCore/ResultBox.h"
#include "VMAgentCore/RunProgram.h"

namespace tervain::Platform {

using namespace Linux;

namespace {

constexpr const char* service = "tervain-vm-agent.service";
constexpr const char* socket = "tervain-vm-agent.socket";

constexpr const char* importSession =
    "in the session: dbus-update-activation-environment --systemd DISPLAY XAUTHORITY; "
    "systemctl --user restart tervain-vm-agent.service";

/// How long a program or a bus is waited for.
constexpr std::chrono::seconds patience{3};

std::string variable(const char* name) {
  const char* const value = std::getenv(name);
  return value ? value : "";
}

/// What the user's service manager says of a unit, by name. Nothing when it doesn't answer.
std::optional<Environment> unit(const char* name) try {
  const std::string args[] = {"--user", "show", name, "--property",
                              "LoadState,UnitFileState,ActiveState,Result,ExecMainStatus,MainPID"};
  const auto ended = runProgram("/usr/bin/systemctl", args, processEnvironment(), after(patience));
  if (!ended || ended->status != 0) {
    return std::nullopt;
  }
  Environment values;
  std::istringstream lines(ended->output);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t equals = line.find('=');
    if (equals != std::string::npos) {
      values.emplace(line.substr(0, equals), line.substr(equals + 1));
    }
  }
  return values;
} catch (const AgentError&) {
  return std::nullopt;
}

Finding examineService() {
  constexpr std::string_view subject = "service";
  auto values = unit(service);
  if (!values) {
    return unsure(
        subject, "the user's service manager does not answer",
        "fine where the session's autostart starts the agent; else: systemctl --user status");
  }
  auto& state = *values;
  if (state["LoadState"] != "loaded") {
    return unsure(subject, std::string(service) + " is " + state["LoadState"],
                  "fine where the session's autostart starts the agent; else: apt-get install "
                  "./tervain-vm-agent_*.deb");
  }
  if (state["ActiveState"] == "active") {
    return fine(subject, "active, as process " + state["MainPID"]);
  }
  const bool enabled = state["UnitFileState"] == "enabled";
  return wrong(subject,
               state["ActiveState"] + ", " + state["UnitFileState"] + ", result " +
                   state["Result"] + ", last exit status " + state["ExecMainStatus"],
               enabled ? "journalctl --user -u tervain-vm-agent; systemctl --user restart "
                         "tervain-vm-agent.service"
                       : "systemctl --global enable tervain-vm-agent.service; log in again");
}

std::optional<Finding> examineSocket() {
  auto values = unit(socket);
  if (!values || (*values)["LoadState"] != "loaded") {
    return std::nullopt;
  }
  const std::string state = (*values)["ActiveState"];
  return state == "active" ? fine("socket", state)
                           : wrong("socket", state + ", result " + (*values)["Result"],
                                   "systemctl --user restart tervain-vm-agent.socket; if another "
                                   "has the port: ss --vsock --listening --processes");
}

Finding examineHelper() {
  const auto helper = std::filesystem::path(ownPath()).parent_path() / "tervain-open";
  return access(helper.c_str(), X_OK) == 0
             ? fine("launch helper", helper.string())
             : wrong("launch helper", helper.string() + " is not there",
                     "apt-get install --reinstall tervain-vm-agent");
}

Finding examineKind() {
  constexpr std::string_view subject = "session";
  const bool wayland =
      variable("XDG_SESSION_TYPE") == "wayland" || !variable("WAYLAND_DISPLAY").empty();
  return wayland ? wrong(subject, "Wayland, which lets nobody see or drive other applications",
                         "have the display manager offer Xorg alone: WaylandEnable=false in "
                         "/etc/gdm3/daemon.conf")
                 : fine(subject, "user " + std::to_string(getuid()) + ", not Wayland");
}

Finding examineServer(const std::optional<X11::Session>& x11) {
  constexpr std::string_view subject = "X server";
  const std::string display = variable("DISPLAY");
  if (display.empty()) {
    return wrong(subject, "DISPLAY is not set", importSession);
  }
  if (x11) {
    return fine(subject, "answers at " + display);
  }
  const std::string cookies = variable("XAUTHORITY");
  return wrong(subject,
               "none answers at " + display + ", XAUTHORITY being " +
                   (cookies.empty() ? "~/.Xauthority" : cookies),
               importSession);
}

/// Why the session bus does not answer; empty when it does. It may hang.
std::string askSessionBus() {
  sd_bus* opened = nullptr;
  int result = sd_bus_open_user(&opened);
  const std::unique_ptr<sd_bus, decltype(&sd_bus_unref)> bus(opened, sd_bus_unref);
  if (result >= 0) {
    result = sd_bus_call_method(opened, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                "org.freedesktop.DBus.Peer", "Ping", nullptr, nullptr, "");
  }
  return result >= 0 ? "" : std::generic_category().message(-result);
}

Finding examineSessionBus() {
  constexpr std::string_view subject = "session bus";
  constexpr const char* remedy =
      "apt-get install dbus-user-session, log in again; in the session: "
      "dbus-update-activation-environment --systemd DBUS_SESSION_BUS_ADDRESS";
  const std::string address = variable("DBUS_SESSION_BUS_ADDRESS");
  if (address.empty() && variable("XDG_RUNTIME_DIR").empty()) {
    return wrong(subject, "DBUS_SESSION_BUS_ADDRESS is not set", remedy);
  }
  const auto box = std::make_shared<ResultBox<std::string>>();
  std::thread([box] { box->put(askSessionBus()); }).detach();
  const auto failure = box->waitUntil(after(patience));
  const std::string name = address.empty() ? "$XDG_RUNTIME_DIR/bus" : address;
  if (failure && failure->empty()) {
    return fine(subject, "answers at " + name);
  }
  return wrong(subject, name + ": " + failure.value_or("no answer"), remedy);
}

Finding examineAccessibilityBus() {
  constexpr std::string_view subject = "accessibility bus";
  return AccessibilityBus::answers()
             ? fine(subject, "answers")
             : wrong(subject, "none answers",
                     "apt-get install at-spi2-core; busctl --user status org.a11y.Bus");
}

}  // namespace

Environment serviceEnvironment() {
  auto values = unit(service);
  const std::string pid = values ? (*values)["MainPID"] : "";
  std::ifstream file("/proc/" + pid + "/environ");
  Environment environment;
  for (std::string entry; std::getline(file, entry, '\0');) {
    const std::size_t equals = entry.find('=');
    if (equals != std::string::npos) {
      environment.emplace(entry.substr(0, equals), entry.substr(equals + 1));
    }
  }
  // That socket is not handed to us.
  environment.erase("LISTEN_PID");
  return environment;
}

std::vector<Finding> examineInstallation() {
  std::vector<Finding> findings{examineService()};
  if (auto finding = examineSocket()) {
    findings.push_back(std::move(*finding));
  }
  findings.push_back(examineHelper());
  return findings;
}

std::vector<Finding> examineSession() {
  auto x11 = X11::Session::open(after(X11::lookLimit));
  std::vector<Finding> findings{examineKind(), examineServer(x11)};
  if (x11) {
    findings.push_back(X11::isManaged(*x11)
                           ? fine("window manager", "is there")
                           : wrong("window manager", "there is none that tells of itself",
                                   "start one of the session, such as xfwm4 or icewm"));
  }
  findings.push_back(examineSessionBus());
  findings.push_back(examineAccessibilityBus());
  return findings;
}

std::string_view remedyFor(Trouble trouble) {
  switch (trouble) {
    case Trouble::noDisplay:
      return "see the X server above; it needs a monitor that is on: xrandr --auto";
    case Trouble::noAccessibility:
      return "see the buses above";
    case Trouble::noPostEvent:
      return "see the X server above; it needs XTEST: xdpyinfo -queryExtensions";
    case Trouble::noScreenRecording:
    case Trouble::noPicture:
      return "see the X server above; nothing may lock or blank the screen: xset s off -dpms";
    case Trouble::stuckPointer:
      return "see the X server above; does a locker or a virtual machine's tablet hold the "
             "pointer?";
    case Trouble::noShell:
      return "install the agent shell as /usr/local/bin/dulk, or zsh and Environment="
             "TERVAIN_DULK_DISABLE=1 in a drop-in of tervain-vm-agent.service";
    case Trouble::noVsock:
      return "give the virtual machine a vsock device (QEMU: -device vhost-vsock-pci,guest-cid=3); "
             "modprobe vmw_vsock_virtio_transport";
    case Trouble::portTaken:
      return "end what has it (ss --vsock --listening --processes), or set another port: "
             "docs/linux.md";
    case Trouble::nobodyListens:
      return "systemctl --user restart tervain-vm-agent.socket tervain-vm-agent.service";
  }
  return {};
}

}  // namespace tervain::Platform
