#include "tervainctl/Descriptions/Descriptions.h"

namespace tervain::ctl {
namespace {

/// The rows of bash's associative arrays, each "[key]=value".
class Tables {
 public:
  void add(std::string_view command, std::span<const Option> options) {
    std::vector<std::string> all;
    int place = 0;
    for (const Option& option : options) {
      for (const std::string_view spelling : spellings(option)) {
        all.emplace_back(spelling);
        addValue(std::string(command) + " " + std::string(spelling), option);
      }
      if (option.spelling.empty()) {
        addOffer(std::string(command) + " " + std::to_string(++place), option);
      }
    }
    put(options_, command, joined(all));
  }

  void addCommand(const Command& command) {
    add(command.name, command.options);
    commands_.emplace_back(command.name);
    if (wordsOf(command)) {
      put(takingWords_, command.name, "1");
    }
  }

  [[nodiscard]] std::string text() const {
    return "  local commands='" + joined(commands_) + "'\n" +  //
           "  local -A options=(\n" + options_ + "  )\n" +     //
           "  local -A values=(\n" + values_ + "  )\n" +       //
           "  local -A offers=(\n" + offers_ + "  )\n" +       //
           "  local -A taking_words=(\n" + takingWords_ + "  )\n";
  }

 private:
  static void put(std::string& rows, std::string_view key, std::string_view value) {
    rows.append("    ['").append(key).append("']='").append(value).append("'\n");
  }

  void addValue(const std::string& key, const Option& option) {
    if (option.kind != Kind::flag) {
      put(values_, key, std::to_string(valueCount(option)));
      addOffer(key, option);
    }
  }

  void addOffer(const std::string& key, const Option& option) {
    const std::vector<std::string> words = offers(option);
    if (option.kind == Kind::file) {
      put(offers_, key, "@file");
    } else if (option.kind == Kind::address) {
      put(offers_, key, "@address");
    } else if (!words.empty()) {
      put(offers_, key, joined(words));
    }
  }

  std::vector<std::string> commands_;
  std::string options_;
  std::string values_;
  std::string offers_;
  std::string takingWords_;
};

}  // namespace

std::string bashTables() {
  Tables tables;
  tables.add("any", commonOptions());
  tables.add("none", {&versionOption(), 1});
  for (const Command& command : commands()) {
    tables.addCommand(command);
  }
  return tables.text();
}

}  // namespace tervain::ctl
