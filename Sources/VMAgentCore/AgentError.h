#pragma once

#include <stdexcept>
#include <string_view>

namespace tervain {

/// The one exception that the agent throws: a system call failed. Its text is what was being done,
/// " failed: " and the system's words for the errno value.
class AgentError : public std::runtime_error {
 public:
  static AgentError posix(std::string_view phrase, int code) { return {phrase, code}; }

  /// The errno value.
  [[nodiscard]] int code() const { return code_; }

 private:
  AgentError(std::string_view phrase, int code);

  int code_;
};

}  // namespace tervain
