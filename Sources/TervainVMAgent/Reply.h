#pragma once

#include <string>
#include <string_view>

#include "VMAgentCore/Json.h"

namespace tervain {

/// What an operation answers: an object and, where the answer is large, bytes that become one more
/// member of it. They are encoded as base64 straight into the reply's line.
class Reply {
 public:
  Reply(Json object) : object_(std::move(object)) {}  // NOLINT(google-explicit-constructor)
  Reply(Json object, std::string_view payloadKey, std::string payload)
      : object_(std::move(object)), payloadKey_(payloadKey), payload_(std::move(payload)) {}

  /// {"ok":true}
  static Reply success();

  /// {"ok":false} with an error text for the host's operator.
  static Reply failure(std::string error);

  [[nodiscard]] const Json& object() const { return object_; }

  /// The reply as a line with its line feed. What can't be written as JSON becomes the fixed reply
  /// that says so. The reply is used up: a large one is not to be in memory twice.
  [[nodiscard]] std::string line() &&;

 private:
  Json object_;
  std::string payloadKey_;  // empty without a payload
  std::string payload_;
};

}  // namespace tervain
