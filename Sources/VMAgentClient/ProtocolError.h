#pragma once

#include <stdexcept>

namespace tervain {

/// The agent does not keep to the protocol: it answers something else than it should, or nothing.
/// The text is a whole sentence for the user.
class ProtocolError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace tervain
