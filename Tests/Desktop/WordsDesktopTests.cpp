#include "Desktop/Desktop.h"

namespace tervain::test {
namespace {

/// Lines for the shell, which call tervainctl, and how they end.
class WordsDesktop : public DesktopTest {
 protected:
  void expect(const std::string& line, int status, const std::string& complaint = "") {
    auto environment = desktopEnvironment();
    environment["TERVAIN_AGENT"] = "unix:" + agent_.socket();
    environment["LC_ALL"] = "C.UTF-8";
    const Ended ended = runToEnd(
        {"/bin/sh", "-c", "tervainctl() { " TERVAINCTL_PATH " \"$@\"; }\n" + line}, environment);
    EXPECT_EQ(ended.status, status) << line << "\n" << ended.err;
    EXPECT_NE(ended.err.find(complaint), std::string::npos) << line << "\n" << ended.err;
  }
};

TEST_F(WordsDesktop, ElementsAreFoundAndUsedByTheirWords) {
  const Program zenity({"zenity", "--entry", "--title", "Größe wählen", "--text", "Neue Größe",
                        "--ok-label", "Größe ändern", "--cancel-label", "Nicht ändern"});
  const std::string pid = " --pid " + std::to_string(zenity.pid());
  expect("tervainctl wait --title 'GRO\u0308SSE wählen' --role dialog --timeout 30" + pid, 0);
  expect("tervainctl find --role button --title ändern" + pid + " | wc -l | grep -qx 2", 0);
  expect("tervainctl press --title ÄNDERN" + pid, 1, "2 elements fit title \"ÄNDERN\"");
  expect("tervainctl press --title Ändern --exact" + pid, 1, "no element fits");
  expect("tervainctl find --title ändern --depth 1" + pid, 1, "the agent shows nothing below");
  expect("tervainctl set --role textfield 'größer' && tervainctl wait --value GRÖSSER", 0);
  expect("tervainctl wait --title ändern --gone --timeout 3" + pid, 124, "still fit");
  expect(
      "tervainctl click --title 'nicht ändern' && tervainctl wait --gone --timeout 30 --title "
      "nicht" +
          pid,
      0);
}

TEST_F(WordsDesktop, TheClipboardHoldsAnyScript) {
  auto environment = desktopEnvironment();
  environment["LC_ALL"] = "C";
  const AgentProcess plain({.environment = environment});
  for (const std::string text : {"größer als ß", "漢字 かな 한글", "مرحبا بالعالم",
                                 "👩‍🔬🏳️‍🌈 zwei\nZeilen", ""}) {
    expect("tervainctl -a unix:" + plain.socket() + " clipboard set '" + text +
               "' && test \"$(tervainctl clipboard get)\" = '" + text + "'",
           0);
  }
}

}  // namespace
}  // namespace tervain::test
