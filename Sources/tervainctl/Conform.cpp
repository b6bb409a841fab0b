// The conformance run: every check in turn, a row each.

#include <CLI/CLI.hpp>

#include <array>
#include <map>
#include <memory>

#include "VMAgentCore/AgentError.h"
#include "tervainctl/Commands.h"
#include "tervainctl/ConformGuest.h"

namespace tervain::ctl {
namespace {

using conform::Check;
using conform::Findings;
using conform::Grant;
using conform::Guest;
using Verdict = Findings::Verdict;

struct Options {
  std::string app;
  bool noDesktop = false;
};

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
  line += ", agent protocol v" + numberText(guest.status(), "version") + ";";
  for (const Grant grant : {Grant::accessibility, Grant::inputSynthesis, Grant::screenRecording}) {
    line.append(grant == Grant::accessibility ? " " : ", ").append(nameOf(grant));
    line.append(guest.granted(grant) ? "" : " not").append(" granted");
  }
  return line + "\n\n";
}

Findings perform(const Check& check, const Guest& guest) {
  Findings findings;
  try {
    check.run(guest, findings);
  } catch (const AgentError& error) {
    findings.expect(false, error.what());
  } catch (const Json::exception& error) {
    findings.expect(false, std::string("a reply of another form: ") + error.what());
  }
  return findings;
}

std::vector<Check> allChecks(bool desktop) {
  std::vector<Check> all;
  for (const auto area :
       {conform::protocolChecks, conform::statusChecks, conform::execChecks, conform::spoolChecks,
        conform::inputChecks, conform::accessibilityChecks, conform::screenshotChecks,
        conform::launchChecks, conform::desktopChecks}) {
    if (desktop || area != conform::desktopChecks) {
      const auto checks = area();
      all.insert(all.end(), checks.begin(), checks.end());
    }
  }
  return all;
}

int run(const Guest& guest, const Options& options) {
  print(headline(guest));
  std::map<Verdict, int> count;
  for (const Check& check : allChecks(!options.noDesktop)) {
    const Findings findings = perform(check, guest);
    print(row(check, findings));
    ++count[findings.verdict()];
  }
  print("\n" + std::to_string(count[Verdict::held]) + " held, " +
        std::to_string(count[Verdict::diverged]) + " failed, " +
        std::to_string(count[Verdict::skipped]) + " skipped\n");
  return count[Verdict::diverged] == 0 ? 0 : failed;
}

/// The address behind the command's name is one more way to say --agent.
void addAddress(CLI::App& options) {
  CLI::Option* const agent =
      options.get_parent() ? options.get_parent()->get_option_no_throw("--agent") : nullptr;
  const auto choose = [agent](const std::string& address) {
    if (agent) {
      agent->clear();
      agent->add_result(address);
      agent->run_callback();
    }
  };
  options.add_option_function<std::string>("ADDRESS", choose,
                                           "Where the agent listens, instead of --agent");
}

}  // namespace

Action declareConform(CLI::App& options) {
  addAddress(options);
  const auto values = std::make_shared<Options>();
  options.add_option("--app", values->app,
                     "The text editor to work with (default: TextEdit on macOS, else mousepad)");
  options.add_flag("--no-desktop", values->noDesktop, "Launch no application");
  options.footer(
      "Drives the agent through everything that its protocol promises and prints a row for each\n"
      "check. The exit status is 0 when nothing failed. Where a grant is missing, the checks are\n"
      "that the agent says so. The pointer moves, an editor is opened, typed into and ended: "
      "leave\n"
      "the guest's keyboard and mouse alone meanwhile.");
  return [values](AgentConnection&, const Call& call) {
    return run(Guest(call.agent, values->app), *values);
  };
}

}  // namespace tervain::ctl
