#pragma once

#include <cstdint>
#include <string>

#include "VMAgentClient/AgentConnection.h"
#include "tervainctl/Conformance/Check.h"

namespace tervain::ctl::conform {

/// An application on the desktop that the agent serves, launched by the run and ended with this
/// object. One that runs there already may hold somebody's work and is left alone.
class Application {
 public:
  Application(const Guest& guest, std::string name);
  ~Application();
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;

  /// Launches it and waits until it is in front. False, with the reason in the findings, when that
  /// does not happen.
  bool launch(Findings& findings);

  /// Whether it has ended, at the latest when it is killed. True for one that was not launched.
  bool end();

  /// 0 unless it was launched.
  [[nodiscard]] std::int64_t pid() const { return pid_; }
  [[nodiscard]] const std::string& name() const { return name_; }

  /// Whether a dump that names no process is one of this application.
  bool isInFront();

  /// The reply to a dump of it, as deep as dumps go.
  Json dump();

  /// The reply to an operation. Refs are those of the last dump.
  Json perform(const char* op, Json fields = Json::object());

 private:
  /// What a dump says that it is of; empty when it fails.
  std::string nameInDump(Json target);

  /// The process of this name that is on the desktop; 0 when there is none.
  std::int64_t findOnDesktop();

  const Guest& guest_;
  std::string name_;
  AgentConnection host_;
  std::int64_t pid_ = 0;
};

}  // namespace tervain::ctl::conform
