#pragma once

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "VMAgentCore/ResultBox.h"

namespace tervain {

/// Bounds the threads that are in calls into one system service.
///
/// Such a call may never return, and a thread in it can't be ended. When a service hangs for good
/// while hosts keep asking, only so many threads are lost; whoever asks then waits for one of them
/// to come back. It is shared by everyone who uses the service, and outlives them.
class Errands {
 public:
  class Errand;

  /// Enough for the connections that use a service at the same time in earnest; few enough that the
  /// pictures they hold fit the memory of a small guest.
  static constexpr std::size_t maxRunning = 8;

  Errands() = default;
  ~Errands() = default;
  Errands(const Errands&) = delete;
  Errands& operator=(const Errands&) = delete;

  /// The right to one thread. Nothing when none has come free by the deadline.
  std::optional<Errand> begin(Deadline deadline);

 private:
  void end();

  std::mutex mutex_;
  std::condition_variable ended_;
  std::size_t running_ = 0;
};

/// The right to have one thread in the service, given back by the destructor.
class Errands::Errand {
 public:
  explicit Errand(Errands& errands) : errands_(&errands) {}
  Errand(Errand&& other) noexcept : errands_(std::exchange(other.errands_, nullptr)) {}
  Errand& operator=(Errand&&) = delete;
  Errand(const Errand&) = delete;
  Errand& operator=(const Errand&) = delete;
  ~Errand() { giveBack(); }

  /// Has `work` done by a detached thread and waits for what it returns. Nothing when it throws, or
  /// when there is no result by the deadline: it then goes on to its end, on what it owns itself,
  /// and its result is dropped. Throws std::system_error when no thread can be started.
  template <class T, class Work>
  std::optional<T> run(Work work, Deadline deadline) && {
    const auto box = std::make_shared<ResultBox<T>>();
    std::thread([box, work = std::move(work), right = std::move(*this)]() mutable {
      auto result = resultOf<T>(work);
      right.giveBack();  // before the one who waits goes on, and may ask again
      box->put(std::move(result));
    }).detach();
    return box->waitUntil(deadline);
  }

 private:
  template <class T, class Work>
  static std::optional<T> resultOf(Work& work) {
    try {
      return std::optional<T>(std::in_place, work());
    } catch (...) {
      return std::nullopt;  // what leaves a thread ends the process
    }
  }

  void giveBack() {
    if (Errands* const errands = std::exchange(errands_, nullptr)) {
      errands->end();
    }
  }

  Errands* errands_;
};

}  // namespace tervain
