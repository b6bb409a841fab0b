#include "Fuzz/HostileApplication.h"

#include <poll.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <map>
#include <sstream>
#include <vector>

#include "Platform/Linux/Accessibility/Bus.h"
#include "Support/BusServer.h"
#include "Support/Peer.h"
#include "Support/TempDir.h"

namespace tervain::fuzz {
namespace {

using Linux::AccessibilityBus::Message;
using Answers = std::deque<std::string>;

const std::string& busPath() {
  static const test::TempDir dir;
  static const std::string path = dir.path("bus");
  return path;
}

int listener() {
  static const UniqueFD socket = test::listenAt(busPath());
  return socket.get();
}

/// What honest applications answer to methods, and what properties hold.
std::string honestTypes(const std::string& name) {
  static const std::map<std::string, std::vector<const char*>> names{
      {"a((so)(so)(so)iiassusau)", {"GetItems"}},
      {"a(so)", {"GetChildren"}},
      {"a(sss)", {"GetActions"}},
      {"as", {"GetInterfaces"}},
      {"au", {"GetState"}},
      {"b", {"DoAction", "GrabFocus", "SelectChild", "SetTextContents"}},
      {"d", {"CurrentValue", "MaximumValue", "MinimumIncrement", "MinimumValue"}},
      {"i",
       {"CharacterCount", "ChildCount", "GetColumnAtIndex", "GetIndexInParent", "GetRowAtIndex",
        "NActions", "NColumns", "NRows"}},
      {"(iiii)", {"GetExtents"}},
      {"s",
       {"GetApplicationBusAddress", "GetName", "GetRoleName", "GetText", "Name", "ToolkitName"}},
      {"(so)",
       {"GetAccessibleAt", "GetAccessibleAtPoint", "GetChildAtIndex", "GetColumnHeader",
        "GetRowHeader", "GetSelectedChild", "Parent"}},
      {"u", {"GetRole"}}};
  for (const auto& [types, group] : names) {
    if (std::find(group.begin(), group.end(), name) != group.end()) {
      return types;
    }
  }
  return "";
}

/// The words of an answer, which are taken one after the other.
class Words {
 public:
  explicit Words(const std::string& line) {
    std::istringstream rest(line);
    for (std::string word; std::getline(rest, word, ' ');) {
      words_.push_back(word);
    }
    if (line.starts_with('*')) {
      const std::size_t count = numberIn(words_.front()) * (words_.size() - 1);
      words_.erase(words_.begin());
      for (std::size_t i = 0; words_.size() < std::min(count, most); ++i) {
        words_.push_back(words_[i]);
      }
    }
  }

  /// Appends values of the types, which are a single one if there is a container among them.
  void append(sd_bus_message* message, const std::string& types) {
    const char kind = types.empty() ? '\0' : types.front();
    if (kind != 'a' && kind != 'v' && kind != '(') {
      std::for_each(types.begin(), types.end(), [&](char type) { appendBasic(message, type); });
      return;
    }
    const std::string inner = types.substr(1, types.size() - (kind == '(' ? 2 : 1));
    if (sd_bus_message_open_container(message, kind == '(' ? 'r' : kind, inner.c_str()) < 0) {
      return;  // no types
    }
    std::size_t before = 0;
    do {
      before = taken_;
      if (kind != 'a' || taken_ < words_.size()) {
        append(message, inner);
      }
    } while (kind == 'a' && taken_ != before);
    sd_bus_message_close_container(message);
  }

 private:
  static constexpr std::size_t most = 1 << 16;  // words of an answer, and letters of a word

  static std::size_t numberIn(const std::string& word) {
    return std::min<std::size_t>(std::strtoul(word.c_str() + 1, nullptr, 10), most);
  }

  std::string take() {
    static int paths = 0;
    const std::string word = taken_ < words_.size() ? words_[taken_++] : "";
    return word == "$"             ? "unix:path=" + busPath()
           : word == "#"           ? "/" + std::to_string(++paths)
           : word.starts_with('~') ? "/" + std::string(numberIn(word), 'x')
                                   : word;
  }

  void appendBasic(sd_bus_message* message, char type) {
    const std::string word = take();
    const std::int64_t integer = std::strtoll(word.c_str(), nullptr, 10);
    const double real = std::strtod(word.c_str(), nullptr);
    const void* value = &integer;  // little-endian, so it serves for integers of any size
    if (type == 'd') {
      value = &real;
    } else if (type == 's' || type == 'o' || type == 'g') {
      value = word.c_str();
    }
    sd_bus_message_append_basic(message, type, value);
  }

  std::vector<std::string> words_;
  std::size_t taken_ = 0;
};

int honestAnswer(sd_bus_message* question) {
  if (sd_bus_message_is_method_call(question, nullptr, "Hello") > 0) {
    return sd_bus_reply_method_return(question, "s", ":1.1");
  }
  if (sd_bus_message_is_method_call(question, nullptr, "GetConnectionUnixProcessID") > 0) {
    return sd_bus_reply_method_return(question, "u", HostileApplication::pid);
  }
  return sd_bus_reply_method_return(question, "a(so)", 1, ":1.7", "/root");
}

/// Negative when the application goes away instead.
int hostileAnswer(sd_bus_message* question, Answers& answers) {
  std::string line = "?UnknownObject";
  if (!answers.empty()) {
    line = std::exchange(answers.front(), {});
    answers.pop_front();
  }
  if (line.starts_with('+')) {
    sd_bus_emit_signal(sd_bus_message_get_bus(question), "/x", "x.y", "Z", "");
    line.erase(0, 1);
  }
  if (line.starts_with('!')) {
    return -1;
  }
  if (line.starts_with('?')) {
    std::erase_if(line, [](unsigned char c) { return std::isalpha(c) == 0; });
    const std::string name = "org.freedesktop.DBus.Error." + (line.empty() ? "Failed" : line);
    return sd_bus_reply_method_errorf(question, name.c_str(), "%s", "");
  }
  const std::string method = sd_bus_message_get_member(question);
  std::string types = honestTypes(method);
  const char* property = nullptr;
  if (line.starts_with('=')) {
    types = line.substr(1, line.find(' ') - 1);
    line.erase(0, types.size() + 2);
  } else if (method == "Get" && sd_bus_message_read(question, "ss", nullptr, &property) > 0) {
    types = "v" + honestTypes(property);
  }
  sd_bus_message* answer = nullptr;
  sd_bus_message_new_method_return(question, &answer);
  const Message owner(answer);
  Words(line).append(answer, types);
  return sd_bus_send(nullptr, answer, nullptr);
}

/// Answers what has been asked on a connection. False when it is to be closed.
bool answerAll(sd_bus* connection, Answers& answers) {
  for (;;) {
    sd_bus_message* question = nullptr;
    const int progress = sd_bus_process(connection, &question);
    const Message owner(question);
    if (progress <= 0) {
      return progress == 0;
    }
    if (!question || sd_bus_message_is_method_call(question, nullptr, nullptr) <= 0) {
      continue;
    }
    const char* to = sd_bus_message_get_destination(question);
    const bool isHonest = to && std::string_view(to).starts_with("org.");
    if ((isHonest ? honestAnswer(question) : hostileAnswer(question, answers)) < 0) {
      return false;
    }
  }
}

void serve(Answers answers, int end) {
  std::vector<Linux::AccessibilityBus::Bus> connections;
  for (;;) {
    std::vector<pollfd> ready{{end, POLLIN, 0}, {listener(), POLLIN, 0}};
    for (const auto& connection : connections) {
      ready.push_back({sd_bus_get_fd(connection.get()),
                       static_cast<short>(sd_bus_get_events(connection.get())), 0});
    }
    poll(ready.data(), ready.size(), -1);
    if (ready[0].revents != 0) {
      return;
    }
    for (std::size_t i = connections.size(); i-- > 0;) {
      if (ready[i + 2].revents != 0 && !answerAll(connections[i].get(), answers)) {
        connections.erase(connections.begin() + static_cast<std::ptrdiff_t>(i));
      }
    }
    if (ready[1].revents != 0) {
      connections.push_back(test::acceptBus(listener()));
    }
  }
}

}  // namespace

void HostileApplication::openBus() {
  listener();
  setenv("AT_SPI_BUS_ADDRESS", ("unix:path=" + busPath()).c_str(), 1);
}

HostileApplication::HostileApplication(std::deque<std::string> answers)
    : thread_(serve, std::move(answers), end_.readEnd.get()) {}

HostileApplication::~HostileApplication() {
  end_.writeEnd.reset();
  thread_.join();
}

}  // namespace tervain::fuzz
