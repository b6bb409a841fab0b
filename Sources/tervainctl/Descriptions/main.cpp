// Prints what is made from the table of commands.
//
//   describe-commands fill TEMPLATE       a completion or the manual, its places filled
//   describe-commands document DOCUMENT   a document, its tables of commands made anew

#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>

#include "tervainctl/CommandTable/Text.h"
#include "tervainctl/Descriptions/Descriptions.h"

namespace tervain::ctl {
namespace {

std::string fill(const std::string& text) {
  const std::pair<std::string_view, std::function<std::string()>> places[]{
      {"@BASH_TABLES@\n", bashTables},       {"@ZSH_CASES@\n", zshCases},
      {"@ZSH_COMMANDS@\n", zshCommands},     {"@ZSH_COMMON@\n", zshCommon},
      {"@FISH_VALUES@\n", fishValues},       {"@FISH_COMPLETIONS@\n", fishCompletions},
      {"@MANUAL_OPTIONS@\n", manualOptions}, {"@MANUAL_COMMANDS@\n", manualCommands},
  };
  std::string result = text;
  for (const auto& [place, make] : places) {
    result = replaced(result, place, make());
  }
  return result;
}

int run(const std::vector<std::string>& arguments) {
  if (arguments.size() != 2 || (arguments[0] != "fill" && arguments[0] != "document")) {
    std::cerr << "usage: describe-commands fill TEMPLATE | document DOCUMENT\n";
    return badUsage;
  }
  std::ifstream file(arguments[1]);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  if (text.empty()) {
    std::cerr << "describe-commands: can't read " << arguments[1] << "\n";
    return EXIT_FAILURE;
  }
  std::cout << (arguments[0] == "fill" ? fill(text) : documentWithTables(text)) << std::flush;
  return std::cout ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace
}  // namespace tervain::ctl

int main(int argc, char** argv) {
  return tervain::ctl::run({argv + 1, argv + argc});
}
