#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "VMAgentCore/Json.h"

/// A conformance run: what the documentation promises of an agent, checked from outside.
namespace tervain::ctl::conform {

class Guest;

/// What one check finds out. The first divergence decides; until then the check holds.
class Findings {
 public:
  enum class Verdict { held, diverged, skipped };

  /// Notes a divergence in these words, unless it holds. Returns `holds`.
  bool expect(bool holds, std::string_view divergence);

  /// The same for a value that must be this one and no other.
  bool expectEqual(std::string_view what, const Json& got, const Json& wanted);

  /// Nothing could be checked, and why. Does not hide a divergence found before.
  void skip(std::string_view why);

  /// A remark for the reader of the table.
  void note(std::string_view remark) { remark_ = remark; }

  [[nodiscard]] Verdict verdict() const { return verdict_; }
  /// Why it diverged or was skipped.
  [[nodiscard]] const std::string& reason() const { return reason_; }
  [[nodiscard]] const std::string& remark() const { return remark_; }

 private:
  Verdict verdict_ = Verdict::held;
  std::string reason_;
  std::string remark_;
};

/// A row of the table.
struct Check {
  const char* area;
  const char* what;
  std::function<void(const Guest& guest, Findings& findings)> run;
};

/// Checks the trees of the application in front, for every kind of "maxDepth". A check of two
/// areas.
void checkFrontmostTree(const Guest& guest, Findings& findings);

/// The check where the guest runs commands. Where it does not, a row that is skipped.
Check whereCommandsRun(Check check);

// The checks, an area in a file of its own.
std::vector<Check> protocolChecks();
std::vector<Check> statusChecks();
std::vector<Check> execChecks();
std::vector<Check> shellEventsChecks();
std::vector<Check> inputChecks();
std::vector<Check> accessibilityChecks();
std::vector<Check> screenshotChecks();
std::vector<Check> launchChecks();
/// These start applications, work in them and end them.
std::vector<Check> desktopChecks();

}  // namespace tervain::ctl::conform
