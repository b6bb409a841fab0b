#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "Platform/Geometry.h"

/// What is behind the functions of the folder Fakes, which stand in for those that the macOS port
/// calls. References are counted: a test fails that uses an object after its release, releases one
/// too often, or leaves one behind.
namespace tervain::Fake {

using Platform::Point;
using Platform::Size;
using Reference = const void*;

enum Type : unsigned long {
  array,
  boolean,
  date,
  element,
  event,
  null,
  number,
  string,
  url,
  value
};

/// The byte 0xFF in a text stands for half a surrogate pair. A URL is a string, maybe followed by
/// that of its base. For an element or an event, a text says what it is; a value can be a code.
using Content = std::variant<std::string, bool, std::int64_t, float, double, Point, Size,
                             std::vector<Reference>, std::int32_t>;

struct Object {
  Type type;
  Content content;
  int references = 1;
  std::chrono::duration<float> timeout{};  // of messages about an element; 0 for the process's
};

/// What a function gives: an object, or none, and whatever that is, a code.
struct Answer {
  Reference object = nullptr;
  std::int32_t code = 0;

  template <class Code, class Ref>
  Code give(Ref* out) const {
    *out = static_cast<Ref>(object);
    return static_cast<Code>(code);
  }
};

/// The codes of the accessibility interface that mean something here.
enum Code : std::int32_t {
  success = 0,
  illegalArgument = -25201,
  gone = -25202,
  noAnswer = -25204,
  unsupported = -25205,
  notImplemented = -25208,
};

/// The application whose elements are asked about. It answers from its `answers`, until it doesn't.
struct Application {
  using Seconds = std::chrono::duration<float>;

  /// The elements below the one that a text says, for attributes of type AXChildren.
  std::function<std::size_t(const std::string& element)> childCount;
  Seconds answersIn{0};
  int answersLeft = 1'000'000;  // then it is silent, or dead
  bool isDead = false;
  bool knowsLists = true;  // of attributes, and parts of lists
  int messages = 0;        // that were sent to it
};

/// Parts with a space between them.
template <class... Parts>
std::string line(const Parts&... parts) {
  std::ostringstream all;
  const char* gap = "";
  ((all << std::exchange(gap, " ") << parts), ...);
  return all.str();
}

/// How the system behaves while this lives, and what was asked of it. There is one at a time.
struct System {
  System() { current = this; }
  System(const System&) = delete;
  System& operator=(const System&) = delete;
  ~System() {
    for (const Object& left : objects) {
      EXPECT_EQ(left.references, 0) << "an object of type " << left.type << " is left";
    }
    for (const auto& [text, left] : constants) {
      EXPECT_EQ(left.references, 1) << text;
    }
  }

  template <class... Parts>
  std::int32_t request(const Parts&... parts) {
    requests.push_back(line(parts...));
    return result;
  }

  /// A message about an element takes its time. Its code, if it is not answered.
  std::optional<std::int32_t> send(Object& element) {
    ++application.messages;
    const bool isThere = application.answersLeft-- > 0;
    const auto limit = element.timeout.count() > 0 ? element.timeout : timeout;
    if (!isThere && application.isDead) {
      return noAnswer;
    }
    const bool inTime = isThere && application.answersIn <= limit;
    uptime += inTime ? application.answersIn : limit;
    return inTime ? std::nullopt : std::optional<std::int32_t>(noAnswer);
  }

  Application application;
  Application::Seconds timeout{6};  // the process's default
  Application::Seconds uptime{0};
  std::map<std::string, Answer> answers;  // for attributes, by name, and for what has no name
  std::int32_t result = 0;                // of requests that have nothing else to give
  bool isSettable = false;
  bool createsObjects = true;
  std::vector<std::uint32_t> displays;  // none when the list can't be had
  Point pointer{};
  std::string grant;  // the only one
  std::uint64_t processStart = 0;

  std::vector<std::string> requests;
  std::deque<Object> objects;
  static inline System* current = nullptr;
  static inline std::map<std::string, Object> constants;  // which it keeps for ever, by their texts
};

inline System& system() {
  return *System::current;
}

/// An object with one reference, which the caller owns. What it holds is its own from now on.
inline void* make(Type type, Content content) {
  return &system().objects.emplace_back(Object{type, std::move(content)});
}

inline Reference constant(Type type, const std::string& text) {
  return &System::constants.try_emplace(text, Object{type, text}).first->second;
}

/// What a Create function gives: a new object, or null when the system is to fail.
template <class Ref>
Ref create(Type type, Content content) {
  return system().createsObjects ? static_cast<Ref>(make(type, std::move(content))) : nullptr;
}

inline Object& object(Reference reference) {
  // References are const, what is behind them is not.
  auto& found = *static_cast<Object*>(const_cast<void*>(reference));  // NOLINT(*-const-cast)
  EXPECT_GT(found.references, 0) << "an object of type " << found.type << " is used after release";
  return found;
}

inline void release(Reference reference) {
  Object& released = object(reference);
  const auto* held = std::get_if<std::vector<Reference>>(&released.content);
  if (--released.references == 0 && held) {
    std::for_each(held->begin(), held->end(), release);
  }
}

inline std::string& text(Reference reference) {
  return std::get<std::string>(object(reference).content);
}

inline const std::vector<Reference>& items(Reference reference) {
  return std::get<std::vector<Reference>>(object(reference).content);
}

/// Copies the content if it is a T.
template <class T>
bool copyContent(Reference reference, void* to) {
  const T* held = std::get_if<T>(&object(reference).content);
  if (held) {
    *static_cast<T*>(to) = *held;
  }
  return held != nullptr;
}

}  // namespace tervain::Fake
