#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

/// What passes between our terminal and one that the guest has made, beside the bytes themselves.
namespace tervain::GuestTerminal {

/// Takes the line out of a command's output in which the guest tells its terminal's path.
class Greeting {
 public:
  explicit Greeting(std::string marker) : marker_(std::move(marker) + " ") {}

  /// The output that is the user's. All of it is held back until the line is complete, which comes
  /// before anything that the command writes, or it is `most`.
  std::string take(std::string_view bytes);

  /// What is held back still, when there is no more output.
  std::string rest() { return std::exchange(held_, {}); }

  /// The path; empty until it is known.
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  /// Far more bytes than any shell says before: the line is not to be expected any more.
  static constexpr std::size_t most = 65'536;

  std::string marker_;
  std::string held_;
  std::string path_;
  bool looking_ = true;
};

/// The user wants to leave, whatever the guest does.
class Left : public std::runtime_error {
 public:
  Left() : std::runtime_error("left the guest") {}
};

/// Looks for what the user has to tell us and not the guest, as in ssh: at the start of a line ~.
/// leaves and ~~ is a tilde.
class Escape {
 public:
  /// The input that is the guest's. Throws Left.
  std::string take(std::string_view bytes);

 private:
  bool atStart_ = true;
  bool pending_ = false;  // a tilde at the start of a line
};

}  // namespace tervain::GuestTerminal
