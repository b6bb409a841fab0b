#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <xcb/xcb.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "Support/AgentProcess.h"

namespace fs = std::filesystem;

namespace tervain::test {
namespace {

std::string contentOf(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

/// Desktop entries of the test's own, and an agent in a German desktop that finds them.
class LaunchDesktop : public testing::Test {
 protected:
  LaunchDesktop() {
    fs::create_directories(data_.path("applications"));
    write("probe-one", "#!/bin/sh\necho $$ one >\"" + data_.path("new") + "\"\nmv \"" +
                           data_.path("new") + "\" \"" + data_.path("started") +
                           "\"\nexec sleep 1000\n");
    chmod(data_.path("probe-one").c_str(), 0755);
    const std::string run = "Exec=" + data_.path("probe-one") + "\n";
    entry("org.example.Probe", run +
                                   "Name=Test Probe\nName[de]=Prüfstück\n"
                                   "StartupWMClass=ProbeClass\n");
    entry("hidden-probe", run + "Name=Unseen\nNoDisplay=true\n");
    entry("gone", "Name=Gone\nExec=/nonexistent/program\n");
    entry("text-probe", "Exec=/bin/true\nName=Text Probe\nTerminal=true\n");
    entry("org.example.Bus", "Exec=/bin/true\nName=Bus Probe\nDBusActivatable=true\n");
    agent_.emplace(AgentProcess::Options{environment(), {}});
  }

  ~LaunchDesktop() override {
    for (const pid_t pid : started_) {
      kill(pid, SIGKILL);
    }
  }

  void write(const std::string& name, const std::string& text) { data_.write(name, text); }

  void entry(const std::string& id, const std::string& lines) {
    write("applications/" + id + ".desktop", "[Desktop Entry]\nType=Application\n" + lines);
  }

  [[nodiscard]] std::map<std::string, std::string> environment() const {
    std::map<std::string, std::string> result = {{"XDG_DATA_HOME", data_.path()},
                                                 {"LANGUAGE", "de"}};
    for (const char* name : {"DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR"}) {
      result[name] = std::getenv(name);
    }
    return result;
  }

  [[nodiscard]] Json launch(const std::string& name) const {
    return agent_->connect().ask(Json{{"op", "launch_app"}, {"name", name}}.dump());
  }

  /// The process that the probe has become; -1 when it was not started.
  pid_t startedProbe() {
    const std::string mark = data_.path("started");
    if (!eventually([&] { return fs::exists(mark); })) {
      return -1;
    }
    const pid_t pid = std::stoi(contentOf(mark));
    fs::remove(mark);
    started_.insert(pid);
    return pid;
  }

  TempDir data_;
  std::optional<AgentProcess> agent_;
  std::set<pid_t> started_;
};

bool ignores(pid_t pid, int signal) {
  const std::string status = contentOf("/proc/" + std::to_string(pid) + "/status");
  const std::string_view key = "SigIgn:\t";
  const auto mask = std::stoull(status.substr(status.find(key) + key.size()), nullptr, 16);
  return (mask >> static_cast<unsigned>(signal - 1) & 1U) != 0;
}

const Json success = {{"ok", true}};

TEST_F(LaunchDesktop, FindsAnApplicationByAnyOfItsNames) {
  for (const char* name : {"org.example.Probe", "org.example.Probe.desktop", "ORG.EXAMPLE.PROBE",
                           "Test Probe", "test probe", "Test Probe.app", "Prüfstück", "PRÜFSTÜCK",
                           "Probe", "probe-one", "probeclass", "Prüf", "hidden-probe"}) {
    EXPECT_EQ(launch(name), success) << name;
    EXPECT_GT(startedProbe(), 0) << name;
  }
  for (const std::string name : {"Nonesuch", "Unseen", "Gone", "gone", "-a", "../probe-one"}) {
    EXPECT_EQ(launch(name)["error"], "no application named \"" + name + "\" (open -a exited 1)");
  }
}

TEST_F(LaunchDesktop, RefusesInWordsWhatCannotRun) {
  // PATH is what terminals are found by; there is none in an empty one.
  auto variables = environment();
  variables["PATH"] = data_.path();
  agent_.emplace(AgentProcess::Options{variables, {}});
  EXPECT_EQ(launch("Text Probe")["error"],
            "could not launch Text Probe: it runs in a terminal, and no terminal application is "
            "installed");
  EXPECT_NE(launch("Bus Probe").value("error", "").find("org.example.Bus"), std::string::npos);
}

TEST_F(LaunchDesktop, WhatIsLaunchedStandsOnItsOwn) {
  const auto before = agent_->footprint();
  EXPECT_EQ(launch("Probe"), success);
  const pid_t pid = startedProbe();
  ASSERT_GT(pid, 0);
  const std::string process = "/proc/" + std::to_string(pid);
  ASSERT_TRUE(eventually([&] { return contentOf(process + "/comm") == "sleep\n"; }));
  std::set<std::string> descriptors;
  for (const auto& fd : fs::directory_iterator(process + "/fd")) {
    descriptors.insert(fd.path().filename().string() + " " + fs::read_symlink(fd.path()).string());
  }
  EXPECT_EQ(descriptors, (std::set<std::string>{"0 /dev/null", "1 /dev/null", "2 /dev/null"}));
  EXPECT_FALSE(ignores(pid, SIGPIPE));
  EXPECT_EQ(getsid(pid), pid);
  EXPECT_TRUE(eventually([&] { return agent_->footprint().within(before); }))
      << testing::PrintToString(agent_->footprint());
  agent_.reset();
  EXPECT_TRUE(isRunning(pid));
}

TEST_F(LaunchDesktop, OpensBundles) {
  fs::create_directories(data_.path("Probe.app"));
  fs::create_directories(data_.path("Other.app"));
  fs::create_directories(data_.path("Empty.app"));
  const std::string probe = data_.path("probe-one");
  fs::create_symlink(probe, data_.path("Probe.app/Probe"));
  fs::create_symlink(probe, data_.path("Other.app/AppRun"));
  fs::create_symlink(probe, data_.path("File.app"));
  for (const char* bundle : {"Probe.app", "Other.app", "File.app"}) {
    EXPECT_EQ(runToEnd({OPEN_PATH, data_.path(bundle)}, environment()).status, 0) << bundle;
    EXPECT_GT(startedProbe(), 0) << bundle;
  }
  const Ended empty = runToEnd({OPEN_PATH, data_.path("Empty.app")}, environment());
  EXPECT_EQ(empty.status, 2);
  EXPECT_EQ(empty.err, "there is no program in it that this system can run");
}

/// The windows that the window manager keeps, with the processes they belong to.
std::set<pid_t> windowOwners() {
  xcb_connection_t* const x11 = xcb_connect(nullptr, nullptr);
  const auto atom = [x11](std::string_view name) {
    auto* const reply = xcb_intern_atom_reply(
        x11, xcb_intern_atom(x11, 0, static_cast<std::uint16_t>(name.size()), name.data()),
        nullptr);
    const xcb_atom_t result = reply->atom;
    std::free(reply);
    return result;
  };
  const auto property = [x11](xcb_window_t window, xcb_atom_t name) {
    std::vector<std::uint32_t> values;
    auto* const reply = xcb_get_property_reply(
        x11, xcb_get_property(x11, 0, window, name, XCB_GET_PROPERTY_TYPE_ANY, 0, 1000), nullptr);
    if (reply && reply->format == 32) {
      const auto* const first = static_cast<std::uint32_t*>(xcb_get_property_value(reply));
      values.assign(first, first + reply->value_len);
    }
    std::free(reply);
    return values;
  };
  std::set<pid_t> owners;
  const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(x11)).data->root;
  for (const xcb_window_t window : property(root, atom("_NET_CLIENT_LIST"))) {
    for (const std::uint32_t pid : property(window, atom("_NET_WM_PID"))) {
      owners.insert(static_cast<pid_t>(pid));
    }
  }
  xcb_disconnect(x11);
  return owners;
}

TEST_F(LaunchDesktop, BringsUpTheWindowOfARealApplication) {
  EXPECT_EQ(launch("Mousepad"), success);
  pid_t editor = -1;
  EXPECT_TRUE(eventually([&] {
    for (const pid_t pid : windowOwners()) {
      if (contentOf("/proc/" + std::to_string(pid) + "/comm") == "mousepad\n") {
        editor = pid;
      }
    }
    return editor > 0;
  }));
  if (editor > 0) {
    started_.insert(editor);
  }
}

}  // namespace
}  // namespace tervain::test
