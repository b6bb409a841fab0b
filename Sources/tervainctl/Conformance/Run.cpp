#include "tervainctl/Conformance/Run.h"

#include <map>
#include <stdexcept>

#include "tervainctl/Conformance/Grants.h"

namespace tervain::ctl::conform {
namespace {

using Verdict = Findings::Verdict;

std::string_view wordFor(Verdict verdict) {
  switch (verdict) {
    case Verdict::held:
      return "held   ";
    case Verdict::diverged:
      return "FAILED ";
    default:
      return "skipped";
  }
}

std::string row(const Check& check, const Findings& findings) {
  constexpr std::size_t areaWidth = 15;
  std::string area(check.area);
  area.resize(areaWidth, ' ');
  std::string line(wordFor(findings.verdict()));
  line.append("  ").append(area).append(check.what);
  if (findings.verdict() == Verdict::diverged) {
    line.append("\n         ").append(areaWidth, ' ').append(findings.reason());
    return line.append("\n");
  }
  const bool skipped = findings.verdict() == Verdict::skipped;
  const std::string& remark = skipped ? findings.reason() : findings.remark();
  line.append(remark.empty() ? "" : " (" + remark + ")");
  return line.append("\n");
}

std::string headline(const Guest& guest) {
  std::string line = guest.system().empty() ? "a guest of some system" : guest.system();
  const auto version = integerMember(guest.status(), "version");
  line += ", agent protocol v" + (version ? std::to_string(*version) : "?");
  std::string_view separator = "; ";
  for (const GrantTerms& terms : grants) {
    line.append(separator).append(terms.name);
    line.append(isGranted(guest, terms.grant) ? " granted" : " not granted");
    separator = ", ";
  }
  return line + "\n\n";
}

Findings perform(const Check& check, const Guest& guest) {
  Findings findings;
  try {
    check.run(guest, findings);
  } catch (const std::runtime_error& error) {
    findings.expect(false, error.what());
  } catch (const Json::exception& error) {
    findings.expect(false, std::string("a reply of another form: ") + error.what());
  }
  return findings;
}

}  // namespace

std::vector<Check> allChecks(bool desktop) {
  std::vector<Check> all;
  for (const auto area : {protocolChecks, statusChecks, execChecks, shellEventsChecks, inputChecks,
                          accessibilityChecks, screenshotChecks, launchChecks, desktopChecks}) {
    if (desktop || area != desktopChecks) {
      const auto checks = area();
      all.insert(all.end(), checks.begin(), checks.end());
    }
  }
  return all;
}

bool run(const Guest& guest, std::span<const Check> checks, const Report& report) {
  report.print(headline(guest));
  std::map<Verdict, std::size_t> count;
  std::size_t done = 0;
  for (; done < checks.size() && report.goesOn(); ++done) {
    const Findings findings = perform(checks[done], guest);
    report.print(row(checks[done], findings));
    ++count[findings.verdict()];
  }
  std::string sum = "\n" + std::to_string(count[Verdict::held]) + " held, " +
                    std::to_string(count[Verdict::diverged]) + " failed, " +
                    std::to_string(count[Verdict::skipped]) + " skipped";
  if (done < checks.size()) {
    sum += ", " + std::to_string(checks.size() - done) + " left out";
  }
  report.print(sum + "\n");
  return done == checks.size() && count[Verdict::diverged] == 0;
}

}  // namespace tervain::ctl::conform
