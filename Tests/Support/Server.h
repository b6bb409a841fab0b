#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace tervain::test {

/// A server of the test's own. It is ended, and waited for, with this object.
class Server {
 public:
  /// Starts a program that writes a line to its standard output once it serves, and waits for the
  /// line. The environment is this process's with additions.
  explicit Server(const std::vector<std::string>& command,
                  const std::map<std::string, std::string>& additions = {});
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /// The line that it wrote, empty if it did not.
  [[nodiscard]] const std::string& line() const { return line_; }

  /// Stops it as if it hung, and lets it go on.
  void hang() const;
  void resume() const;

 private:
  pid_t pid_ = -1;
  std::string line_;
};

}  // namespace tervain::test
