#include <csignal>
#include <filesystem>
#include <set>

#include "Desktop/Desktop.h"

namespace fs = std::filesystem;

namespace tervain::test {
namespace {

const Json success = {{"ok", true}};

/// Desktop entries of the test's own, and an agent in a German desktop that finds them.
class LaunchDesktop : public testing::Test {
 protected:
  LaunchDesktop() {
    data_.write("probe-one",
                "#!/bin/sh\necho \"$$ $*\" >\"" + data_.path("started") + "\"\nexec sleep 1000\n");
    fs::permissions(probe_, fs::perms::owner_all);
    fs::create_directories(data_.path("chromium"));
    fs::copy(probe_, data_.path("chromium/electric"));
    data_.write("chromium/chrome_100_percent.pak", "");
    const std::string run = "Exec=" + probe_;
    entry("org.example.Probe",
          run + " %U\nName=Test Probe\nName[de]=Prüfstück\nStartupWMClass=ProbeClass\n");
    entry("aprobe", run + " --first\nName=Iğdır Cafe\u0301\n");
    entry("org.example.desktop", run + " --twin\nName=IĞDIR CAFÉ\n");
    entry("sub/Folder", "Exec=env A=b " + probe_ + "\nName=Odd\n");
    entry("snap_snap", "Exec=env A=b " + data_.path("chromium/electric") + " %U\nName=Snap\n");
    entry("script", "Exec=sh " + probe_ + " --script\nName=\nOnlyShowIn=Elsewhere\n" +
                        "StartupWMClass=Scripted\n");
    entry("hidden-probe", run + " --hidden\nName=Unseen\nNoDisplay=true\n");
    entry("gone", "Name=Gone\nExec=/nonexistent/program\n");
    entry("org.example.Bus", "Exec=/bin/true\nName=Bus Probe\nDBusActivatable=true\n");
    environment_["XDG_DATA_HOME"] = data_.path();
    environment_["LANGUAGE"] = "de";
    environment_.erase("XDG_CURRENT_DESKTOP");
    agent_.emplace(AgentProcess::Options{environment_});
  }

  ~LaunchDesktop() override {
    for (const pid_t pid : started_) {
      kill(pid, SIGKILL);
    }
  }

  void entry(const std::string& id, const std::string& lines) {
    fs::create_directories(fs::path(data_.path("applications/" + id)).parent_path());
    data_.write("applications/" + id + ".desktop", "[Desktop Entry]\nType=Application\n" + lines);
  }

  [[nodiscard]] Json launch(const std::string& name) const {
    return agent_->connect().ask(Json{{"op", "launch_app"}, {"name", name}}.dump());
  }

  /// The process that the probe has become; -1 when it was not started.
  pid_t startedProbe() {
    const std::string mark = data_.path("started");
    if (!eventually([&] { return textOf(mark).ends_with('\n'); })) {
      return -1;
    }
    const std::string started = textOf(mark);
    const pid_t pid = std::stoi(started);
    arguments_ = started.substr(started.find(' ') + 1);
    arguments_.pop_back();
    fs::remove(mark);
    started_.insert(pid);
    return pid;
  }

  TempDir data_;
  std::string probe_ = data_.path("probe-one");
  std::map<std::string, std::string> environment_ = desktopEnvironment();
  std::optional<AgentProcess> agent_;
  std::set<pid_t> started_;
  std::string arguments_;  ///< those that the last probe got
};

TEST_F(LaunchDesktop, FindsTheApplicationThatANameFitsBest) {
  const struct {
    std::string arguments;
    std::vector<const char*> names;
  } cases[] = {{"",
                {"org.example.Probe", "org.example.Probe.desktop", "ORG.EXAMPLE.PROBE",
                 "Test Probe", "test probe", "Test Probe.app", "PRÜFSTÜCK", "Pru\u0308fstu\u0308ck",
                 "Probe", "probe-one", "probeclass", "sub-Folder"}},
               {"--first", {"aprobe", "ığdır café", "IĞDIR CAFE\u0301", "İĞDİR CAFÉ"}},
               {"--twin", {"org.example.desktop"}},
               {"--hidden", {"hidden-probe"}},
               {"--script", {"scripted"}},
               {"--force-renderer-accessibility", {"Snap", "electric"}}};
  for (const auto& c : cases) {
    for (const char* name : c.names) {
      EXPECT_EQ(launch(name), success) << name;
      EXPECT_GT(startedProbe(), 0) << name;
      EXPECT_EQ(arguments_, c.arguments) << name;
    }
  }
  for (const std::string name : {"Nonesuch", "Unseen", "Gone", "gone", "-a", "../probe-one", ".app",
                                 ".desktop", " ", "Prüf", "Test Probe ", "Folder", "sh", "env"}) {
    EXPECT_EQ(launch(name)["error"], "no application named \"" + name + "\" (open -a exited 1)");
  }
  EXPECT_NE(launch("Bus Probe").value("error", "").find("org.example.Bus"), std::string::npos);
}

TEST_F(LaunchDesktop, WhatIsLaunchedStandsOnItsOwn) {
  const auto before = agent_->footprint();
  EXPECT_EQ(launch("Probe"), success);
  const pid_t pid = startedProbe();
  ASSERT_GT(pid, 0);
  const std::string process = "/proc/" + std::to_string(pid);
  ASSERT_TRUE(eventually([&] { return textOf(process + "/comm") == "sleep\n"; }));
  std::set<std::string> descriptors;
  for (const auto& fd : fs::directory_iterator(process + "/fd")) {
    descriptors.insert(fd.path().filename().string() + " " + fs::read_symlink(fd.path()).string());
  }
  EXPECT_EQ(descriptors, (std::set<std::string>{"0 /dev/null", "1 /dev/null", "2 /dev/null"}));
  const std::string status = textOf(process + "/status");
  const auto ignored = std::stoull(status.substr(status.find("SigIgn:") + 7), nullptr, 16);
  EXPECT_EQ(ignored >> unsigned{SIGPIPE - 1} & 1U, 0U);
  EXPECT_EQ(getsid(pid), pid);
  EXPECT_TRUE(eventually([&] { return agent_->footprint().within(before); }))
      << testing::PrintToString(agent_->footprint());
  agent_.reset();
  EXPECT_TRUE(isRunning(pid));
}

TEST_F(LaunchDesktop, OpensBundles) {
  for (const char* bundle : {"Probe.app", "Other.app", "Empty.app"}) {
    fs::create_directories(data_.path(bundle));
  }
  for (const char* program : {"Probe.app/Probe", "Other.app/AppRun", "File.app"}) {
    fs::create_symlink(probe_, data_.path(program));
  }
  for (const char* bundle : {"Probe.app", "Other.app", "File.app"}) {
    EXPECT_EQ(runToEnd({OPEN_PATH, data_.path(bundle)}, environment_).status, 0) << bundle;
    EXPECT_GT(startedProbe(), 0) << bundle;
  }
  EXPECT_EQ(runToEnd({OPEN_PATH, data_.path("Empty.app")}, environment_).err,
            "there is no program in it that this system can run");
}

}  // namespace
}  // namespace tervain::test
