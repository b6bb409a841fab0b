#pragma once

namespace tervain::Linux {

/// How "tervain-open" exits.
enum class OpenStatus {
  opened = 0,
  unknown = 1,  ///< there is no such application
  failed = 2,   ///< it is there but can't be opened; standard output says why
};

}  // namespace tervain::Linux
