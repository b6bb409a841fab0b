#pragma once

#include <algorithm>
#include <chrono>

namespace tervain::Platform {

/// How long a walk over an application's elements puts up with its silence. Once that is used up,
/// the reader asks nothing any more: the rest of the walk can't be read. Every port obeys this one.
class Patience {
 public:
  using Duration = std::chrono::steady_clock::duration;

  /// How many questions may stay without an answer for a whole messaging timeout: an application
  /// that merely stumbled gets a second chance, one that hangs costs no more than that.
  static constexpr int maxUnanswered = 2;

  /// How long is waited for answers in all. An application that gives each just in time would
  /// otherwise hold up a walk for minutes.
  static constexpr Duration maxWaiting = std::chrono::seconds(10);

  /// `unanswered` questions have stayed so just before the walk.
  explicit Patience(int unanswered = 0) : unanswered_(unanswered) {}

  /// Notes the time that was waited for a question, or for several that were asked at once, and
  /// whether it ended because a messaging timeout had passed.
  void note(Duration waited, bool timedOut) {
    waited_ += waited;
    unanswered_ += timedOut ? 1 : 0;
  }

  /// Whether nothing is to be asked any more.
  [[nodiscard]] bool isExhausted() const {
    return unanswered_ >= maxUnanswered || waited_ >= maxWaiting;
  }

  /// How much longer may be waited, were it for one answer alone.
  [[nodiscard]] Duration left() const { return std::max(maxWaiting - waited_, Duration::zero()); }

 private:
  int unanswered_;
  Duration waited_{};
};

}  // namespace tervain::Platform
