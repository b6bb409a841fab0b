#include "VMAgentClient/SshCommandLine.h"

#include <fnmatch.h>

#include <algorithm>
#include <cctype>
#include <charconv>

namespace tervain {
namespace {

constexpr std::string_view withArgument = "BbcDEeFIiJLlmOoPpQRSWw";
constexpr std::string_view withoutArgument = "1246AaCfGgKkMNnqsTtVvXxYy";

std::string lowered(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return result;
}

bool isBlank(char c) {
  return c == ' ' || c == '\t';
}

/// The words of an option's value, parted at blanks that stand in no quotes.
std::vector<std::string> wordsOf(std::string_view value) {
  std::vector<std::string> words;
  char quote = 0;
  bool inWord = false;
  for (std::size_t i = 0; i < value.size(); ++i) {
    const char c = value[i];
    if (!quote && isBlank(c)) {
      inWord = false;
      continue;
    }
    if (!inWord) {
      words.emplace_back();
      inWord = true;
    }
    if (c == quote) {
      quote = 0;
    } else if (!quote && (c == '"' || c == '\'')) {
      quote = c;
    } else if (c == '\\' && i + 1 < value.size() && quote != '\'') {
      words.back() += value[++i];
    } else {
      words.back() += c;
    }
  }
  return words;
}

/// Words as one, as ssh joins them: it quotes nothing.
std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    text.append(text.empty() ? "" : " ").append(word);
  }
  return text;
}

/// An argument of -o in two: "Name=value" or "Name value".
struct Setting {
  std::string name;  // in lower case
  std::vector<std::string> words;

  [[nodiscard]] std::string value() const { return words.empty() ? "" : words.front(); }
  [[nodiscard]] bool says(std::string_view what) const { return lowered(value()) == what; }
};

Setting settingOf(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
  const std::size_t end = std::min(text.find_first_of(" \t="), text.size());
  const std::string name = lowered(text.substr(0, end));
  text.remove_prefix(end);
  text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
  if (text.starts_with('=')) {
    text.remove_prefix(1);
  }
  return {name, wordsOf(text)};
}

SshRefusal noForwarding(const std::string& what) {
  return {what + ": an agent forwards nothing; it offers what a command's input and output carry"};
}

class Parser {
 public:
  explicit Parser(const Environment& environment) : environment_(environment) {}

  std::variant<SshCommandLine, SshRefusal> parse(std::span<const std::string> arguments) {
    takeOptions(arguments);
    if (!refusal_ && !arguments.empty()) {
      takeHost(arguments.front());
      arguments = arguments.subspan(1);
      if (!optionsEnded_) {  // with "--" before the host none stand behind it
        takeOptions(arguments);
      }
      line_.words.assign(arguments.begin(), arguments.end());
    }
    if (!refusal_ && line_.purpose != SshCommandLine::Purpose::showVersion && line_.host.empty()) {
      refuse({"usage: tervain-ssh [OPTION...] NAME [COMMAND...]"});
    }
    if (refusal_) {
      return *refusal_;
    }
    if (line_.words.empty()) {
      line_.words = remoteCommand_;
    }
    return std::move(line_);
  }

 private:
  void refuse(SshRefusal refusal) { refusal_ = refusal_ ? refusal_ : std::move(refusal); }

  /// What stands before an option holds, as in ssh.
  template <class Value>
  static void setOnce(std::optional<Value>& place, Value value) {
    place = place ? place : std::move(value);
  }

  void takeHost(std::string_view text) {
    constexpr std::string_view scheme = "ssh://";
    if (text.starts_with(scheme)) {
      text.remove_prefix(scheme.size());
      text = text.substr(0, text.find_first_of("/:"));
    }
    if (const std::size_t at = text.rfind('@'); at != std::string_view::npos) {
      setOnce(line_.user, std::string(text.substr(0, at)));
      text.remove_prefix(at + 1);
    }
    line_.host = text;
  }

  /// Takes the options at the front of the arguments.
  void takeOptions(std::span<const std::string>& arguments) {
    while (!refusal_ && !arguments.empty()) {
      const std::string_view word = arguments.front();
      if (word.size() < 2 || word.front() != '-') {
        return;
      }
      arguments = arguments.subspan(1);
      if (word == "--") {
        optionsEnded_ = true;
        return;
      }
      takeWord(word.substr(1), arguments);
    }
  }

  /// Takes a word of options, "-tt" or "-lada", and the argument of the last one where it is the
  /// next word.
  void takeWord(std::string_view letters, std::span<const std::string>& arguments) {
    while (!letters.empty() && !refusal_) {
      const char letter = letters.front();
      letters.remove_prefix(1);
      if (withArgument.find(letter) == std::string_view::npos) {
        takeFlag(letter);
        continue;
      }
      if (letters.empty() && arguments.empty()) {
        return refuse({std::string("option requires an argument -- ") + letter});
      }
      takeOption(letter, letters.empty() ? std::string_view(arguments.front()) : letters);
      arguments = arguments.subspan(letters.empty() ? 1 : 0);
      return;
    }
  }

  void takeFlag(char letter) {
    using enum SshCommandLine::Terminal;
    using enum SshCommandLine::Purpose;
    switch (letter) {
      case 'n':
        line_.noInput = true;
        break;
      case 'q':
        line_.quiet = true;
        break;
      case 's':
        line_.subsystem = true;
        break;
      case 'T':
        line_.terminal = never;
        break;
      case 't':
        line_.terminal = line_.terminal == wanted ? forced : wanted;
        break;
      case 'V':
        line_.purpose = showVersion;
        break;
      case 'G':
        line_.purpose = showConfiguration;
        break;
      case 'A':
      case 'X':
      case 'Y':
        refuse(noForwarding(std::string("-") + letter));
        break;
      case 'f':
      case 'N':
        refuse({std::string("-") + letter +
                ": nothing goes on in the background; let the shell do that"});
        break;
      default:
        if (withoutArgument.find(letter) == std::string_view::npos) {
          refuse({std::string("unknown option -- ") + letter});
        }
    }
  }

  void takeOption(char letter, std::string_view argument) {
    switch (letter) {
      case 'l':
        setOnce(line_.user, std::string(argument));
        break;
      case 'o':
        takeSetting(settingOf(argument));
        break;
      case 'D':
      case 'L':
      case 'R':
      case 'W':
      case 'w':
        refuse(noForwarding(std::string("-") + letter));
        break;
      case 'O':
      case 'Q':
        refuse({std::string("-") + letter + ": no connection is kept, and no cipher used"});
        break;
      default:
        break;  // keys, ciphers, ports and the way to the host: the agent's address has all
    }
  }

  void takeSetting(const Setting& setting) {
    const std::string& name = setting.name;
    if (name == "user") {
      setOnce(line_.user, setting.value());
    } else if (name == "sendenv") {
      std::for_each(setting.words.begin(), setting.words.end(),
                    [this](const std::string& pattern) { send(pattern); });
    } else if (name == "setenv") {
      line_.environment.insert(line_.environment.end(), setting.words.begin(), setting.words.end());
    } else if (name == "requesttty") {
      takeTerminal(setting);
    } else if (name == "stdinnull") {
      line_.noInput = line_.noInput || setting.says("yes");
    } else if (name == "sessiontype") {
      line_.subsystem = line_.subsystem || setting.says("subsystem");
    } else if (name == "loglevel") {
      line_.quiet = line_.quiet || setting.says("quiet");
    } else if (name == "remotecommand" && !setting.says("none")) {
      remoteCommand_ = {joined(setting.words)};
    } else if (name == "connecttimeout") {
      takeConnectLimit(setting.value());
    } else if (forwards(setting)) {
      refuse(noForwarding("-o " + name));
    }
  }

  static bool forwards(const Setting& setting) {
    const std::string& name = setting.name;
    const bool always = name == "localforward" || name == "remoteforward" ||
                        name == "dynamicforward" || name == "stdioforward";
    const bool ifWanted = name == "forwardagent" || name == "forwardx11" || name == "tunnel";
    return always || (ifWanted && !setting.says("no"));
  }

  void takeTerminal(const Setting& setting) {
    using enum SshCommandLine::Terminal;
    if (line_.terminal == automatic) {
      line_.terminal = setting.says("force") ? forced
                       : setting.says("yes") ? wanted
                       : setting.says("no")  ? never
                                             : automatic;
    }
  }

  void takeConnectLimit(const std::string& text) {
    unsigned seconds = 0;
    const auto [end, failed] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    if (failed == std::errc() && seconds > 0) {
      setOnce(line_.connectLimit, std::chrono::milliseconds(std::chrono::seconds(seconds)));
    }
  }

  void send(const std::string& pattern) {
    for (const auto& [name, value] : environment_) {
      if (fnmatch(pattern.c_str(), name.c_str(), 0) == 0) {
        line_.environment.emplace_back(name).append("=").append(value);
      }
    }
  }

  const Environment& environment_;
  SshCommandLine line_;
  std::optional<SshRefusal> refusal_;
  std::vector<std::string> remoteCommand_;
  bool optionsEnded_ = false;
};

}  // namespace

std::variant<SshCommandLine, SshRefusal> parseSshCommandLine(std::span<const std::string> arguments,
                                                             const Environment& environment) {
  return Parser(environment).parse(arguments);
}

std::variant<std::string, SshRefusal> guestLine(const SshCommandLine& line) {
  GuestShell::Surroundings surroundings{.folder = "", .environment = {}, .user = line.user};
  for (const std::string& entry : line.environment) {
    const std::size_t equals = entry.find('=');
    if (equals != std::string::npos &&
        GuestShell::isVariable(std::string_view(entry).substr(0, equals))) {
      surroundings.environment[entry.substr(0, equals)] = entry.substr(equals + 1);
    }
  }
  const std::string command = joined(line.words);
  if (line.subsystem && command != "sftp") {
    return SshRefusal{"there is no subsystem " + command + ", only sftp"};
  }
  return GuestShell::inSurroundings(line.subsystem    ? GuestShell::sftpServer()
                                    : command.empty() ? GuestShell::loginShell()
                                                      : command,
                                    surroundings);
}

}  // namespace tervain
