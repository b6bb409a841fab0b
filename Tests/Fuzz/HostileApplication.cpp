#include "Fuzz/HostileApplication.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>

#include "Fuzz/Fuzz.h"

namespace tervain::fuzz {
namespace {

struct Signature {
  std::string_view name;
  const char* types;
};

/// What honest applications answer to methods, and what properties hold.
constexpr Signature methods[] = {{"GetState", "au"},
                                 {"GetExtents", "(iiii)"},
                                 {"GetRole", "u"},
                                 {"GetRoleName", "s"},
                                 {"GetInterfaces", "as"},
                                 {"GetChildren", "a(so)"},
                                 {"GetChildAtIndex", "(so)"},
                                 {"GetIndexInParent", "i"},
                                 {"GetText", "s"},
                                 {"GetActions", "a(sss)"},
                                 {"GetAccessibleAtPoint", "(so)"},
                                 {"GetApplicationBusAddress", "s"},
                                 {"DoAction", "b"},
                                 {"GrabFocus", "b"},
                                 {"SelectChild", "b"},
                                 {"SetTextContents", "b"},
                                 {"Set", ""}};
constexpr Signature properties[] = {
    {"Name", "s"},         {"ChildCount", "i"},   {"Parent", "(so)"},    {"ToolkitName", "s"},
    {"CurrentValue", "d"}, {"MinimumValue", "d"}, {"MaximumValue", "d"}, {"MinimumIncrement", "d"}};
constexpr const char* otherTypes[] = {"",    "u",    "s",     "v",      "d",      "au",
                                      "as",  "(so)", "a(so)", "a(sss)", "(iiii)", "a{sv}",
                                      "aas", "x",    "ss",    "b"};
constexpr const char* errors[] = {SD_BUS_ERROR_UNKNOWN_OBJECT, SD_BUS_ERROR_UNKNOWN_METHOD,
                                  SD_BUS_ERROR_FAILED, SD_BUS_ERROR_NO_REPLY,
                                  SD_BUS_ERROR_SERVICE_UNKNOWN};
constexpr std::string_view application = ":1.7";
constexpr double numbers[] = {0,
                              1,
                              -1,
                              0.5,
                              1e308,
                              -1e308,
                              1e-308,
                              4e9,
                              __builtin_inf(),
                              -__builtin_inf(),
                              __builtin_nan("")};
constexpr const char* words[] = {":1.7",
                                 "",
                                 "GTK",
                                 "gtk",
                                 "Qt",
                                 "org.a11y.atspi.Text",
                                 "org.a11y.atspi.Value",
                                 "org.a11y.atspi.Action",
                                 "org.a11y.atspi.EditableText",
                                 "org.a11y.atspi.Component",
                                 "click",
                                 "press",
                                 "activate",
                                 "toggle",
                                 "SetFocus",
                                 "menu.popup",
                                 "AXPress",
                                 "increase",
                                 "button menu",
                                 "switch",
                                 "tree item",
                                 "search box",
                                 "GtkButton",
                                 "Save ",
                                 "unix:abstract=nobody",
                                 "tcp:port=1",
                                 "/\n\x1f\x7f",
                                 "\xc3\xa9\xf0\x9f\x91\x8d",
                                 "e\xcc\x81\xcc\x81\xcc\x81",
                                 "\xff",
                                 "\xed\xa0\x80",
                                 "\xef\xbf\xbf"};

template <class Table>
const char* typesOf(const Table& table, std::string_view name) {
  for (const Signature& entry : table) {
    if (entry.name == name) {
      return entry.types;
    }
  }
  return "";
}

/// The first complete type of a signature.
std::string_view firstType(std::string_view types) {
  std::size_t end = types.find_first_not_of('a');
  for (int open = 0; end < types.size(); ++end) {
    open += types[end] == '(' || types[end] == '{' ? 1 : 0;
    open -= types[end] == ')' || types[end] == '}' ? 1 : 0;
    if (open == 0) {
      break;
    }
  }
  return types.substr(0, end + 1);
}

/// Writes answers. Bytes below a limit are values themselves, the others say where to take one
/// from, so that small changes of an input are small changes of what it means.
class Answers {
 public:
  Answers(Bytes& input, const std::string& address) : input_(input), address_(address) {}

  void append(sd_bus_message* message, std::string_view types) {
    while (!types.empty()) {
      const std::string_view type = firstType(types);
      appendOne(message, type);
      types.remove_prefix(type.size());
    }
  }

 private:
  void appendOne(sd_bus_message* message, std::string_view type) {
    switch (type.front()) {
      case 'a':
        return appendArray(message, std::string(type.substr(1)));
      case '(':
      case '{':
        return appendStruct(message, type.front() == '(' ? 'r' : 'e',
                            std::string(type.substr(1, type.size() - 2)));
      case 'v':
        return appendVariant(message, otherTypes[input_.byte() % std::size(otherTypes)]);
      case 's':
      case 'o':
        return appendText(message, type.front());
      case 'd':
        return appendDouble(message);
      default:
        return appendInteger(message, type.front());
    }
  }

 public:
  void appendVariant(sd_bus_message* message, const std::string& types) {
    sd_bus_message_open_container(message, 'v', types.empty() ? "u" : types.c_str());
    append(message, types.empty() ? "u" : types);
    sd_bus_message_close_container(message);
  }

 private:
  void appendStruct(sd_bus_message* message, char kind, const std::string& types) {
    sd_bus_message_open_container(message, kind, types.c_str());
    append(message, types);
    sd_bus_message_close_container(message);
  }

  /// So many elements, or one element thousands of times.
  void appendArray(sd_bus_message* message, const std::string& type) {
    const unsigned count = input_.byte();
    const bool repeats = count >= 0xE0;
    sd_bus_message_open_container(message, 'a', type.c_str());
    const Bytes element = input_;
    for (unsigned i = 0; i < (repeats ? 1U << (count & 15U) : count & 63U) && room_ > 0; ++i) {
      if (repeats) {
        input_ = element;
      }
      --room_;
      append(message, type);
    }
    sd_bus_message_close_container(message);
  }

  void appendText(sd_bus_message* message, char type) {
    const unsigned kind = input_.byte();
    std::string text = type == 's' ? words[kind % std::size(words)] : "/" + std::to_string(kind);
    if (kind >= 0xF0) {
      text = input_.take(input_.byte());
    } else if (kind >= 0xE0) {
      text = (type == 's' ? "" : "/") + std::string(std::size_t{1} << (kind & 15U), 'x');
    } else if (kind == 0xDF) {
      text = type == 's' ? address_ : "/org/a11y/atspi/null";
    } else if (kind == 0xDE) {
      text = "/" + std::to_string(++numbered_);  // unlike any before
    }
    room_ -= static_cast<int>(text.size());
    sd_bus_message_append_basic(message, type, text.c_str());
  }

  void appendDouble(sd_bus_message* message) {
    const unsigned kind = input_.byte();
    const double number =
        kind >= 0xF0 ? input_.value<double>() : numbers[kind % std::size(numbers)];
    sd_bus_message_append_basic(message, 'd', &number);
  }

  void appendInteger(sd_bus_message* message, char type) {
    constexpr std::uint64_t shows = 1U << 8U | 1U << 24U | 1U << 25U | 1U << 30U;
    const unsigned kind = input_.byte();
    std::uint64_t number = kind;
    if (kind >= 0xF0) {
      number = input_.value<std::uint32_t>();
    } else if (kind >= 0xE0) {
      number = shows | 1U << (kind & 15U);
    } else if (kind >= 0xC0) {
      number = std::uint64_t{1} << (kind & 31U);
    }
    number &= type == 'b' ? 1U : UINT64_MAX;
    sd_bus_message_append_basic(message, type, &number);  // little-endian, as large as need be
  }

  Bytes& input_;
  const std::string& address_;
  int numbered_ = 0;
  int room_ = 1 << 18;  // for elements and the bytes of texts: arrays in arrays must end some time
};

struct Unref {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};

int honestAnswer(sd_bus_message* question) {
  if (sd_bus_message_is_method_call(question, "org.freedesktop.DBus", "Hello") > 0) {
    return sd_bus_reply_method_return(question, "s", ":1.1");
  }
  if (sd_bus_message_is_method_call(question, nullptr, "GetConnectionUnixProcessID") > 0) {
    return sd_bus_reply_method_return(question, "u", HostileApplication::pid);
  }
  return sd_bus_reply_method_return(question, "a(so)", 1, application.data(), "/root");
}

/// Negative when the application goes away instead.
int hostileAnswer(sd_bus_message* question, Bytes& input, const std::string& address) {
  const unsigned kind = input.empty() ? 0xE0 : input.byte();
  if (kind == 0xFF) {
    return -1;
  }
  if (kind >= 0xF0) {
    sd_bus_emit_signal(sd_bus_message_get_bus(question), "/x", "x.y", "Z", "u", kind);
  } else if (kind >= 0xE0) {
    return sd_bus_reply_method_errorf(question, errors[(kind & 15U) % std::size(errors)], "%s", "");
  }
  sd_bus_message* made = nullptr;
  sd_bus_message_new_method_return(question, &made);
  const std::unique_ptr<sd_bus_message, Unref> answer(made);
  Answers answers(input, address);
  const std::string_view member = sd_bus_message_get_member(question);
  const char* name = "";
  if (kind >= 0xC0) {
    answers.append(made, otherTypes[kind % std::size(otherTypes)]);
  } else if (member == "Get" && sd_bus_message_read(question, "ss", nullptr, &name) > 0) {
    answers.appendVariant(made, typesOf(properties, name));
  } else {
    answers.append(made, typesOf(methods, member));
  }
  return sd_bus_send(nullptr, made, nullptr);
}

}  // namespace

HostileApplication::HostileApplication()
    : listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  // The system chooses an abstract address that is free.
  sockaddr_un at{};
  at.sun_family = AF_UNIX;
  socklen_t size = sizeof at.sun_family;
  require(bind(listener_.get(), reinterpret_cast<const sockaddr*>(&at), size) == 0 &&
              listen(listener_.get(), SOMAXCONN) == 0,
          "no bus");
  size = sizeof at;
  getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&at), &size);
  address_ =
      "unix:abstract=" + std::string(at.sun_path + 1, size - offsetof(sockaddr_un, sun_path) - 1);
  setenv("AT_SPI_BUS_ADDRESS", address_.c_str(), 1);
}

void HostileApplication::accept() {
  UniqueFD fd(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  sd_bus* bus = nullptr;
  sd_bus_new(&bus);
  connections_.emplace_back(bus);
  sd_bus_set_fd(bus, fd.get(), fd.get());
  [[maybe_unused]] const int owned = fd.release();
  sd_bus_set_server(bus, 1, {});
  sd_bus_set_anonymous(bus, 1);
  require(sd_bus_start(bus) >= 0, "no connection");
}

bool HostileApplication::answerAll(sd_bus* connection, Bytes& input) const {
  for (;;) {
    sd_bus_message* read = nullptr;
    const int progress = sd_bus_process(connection, &read);
    const std::unique_ptr<sd_bus_message, Unref> question(read);
    if (progress <= 0) {
      return progress == 0;
    }
    std::uint8_t type = 0;
    if (!question || sd_bus_message_get_type(read, &type) < 0 ||
        type != SD_BUS_MESSAGE_METHOD_CALL) {
      continue;
    }
    const char* destination = sd_bus_message_get_destination(read);
    const int sent = destination && std::string_view(destination).starts_with("org.")
                         ? honestAnswer(read)
                         : hostileAnswer(read, input, address_);
    if (sent < 0) {
      return false;
    }
  }
}

void HostileApplication::serve(Bytes& input, int until) {
  for (;;) {
    std::vector<pollfd> ready{{until, POLLIN, 0}, {listener_.get(), POLLIN, 0}};
    for (const auto& connection : connections_) {
      ready.push_back({sd_bus_get_fd(connection.get()),
                       static_cast<short>(sd_bus_get_events(connection.get())), 0});
    }
    poll(ready.data(), ready.size(), -1);
    if (ready[0].revents != 0) {
      return;
    }
    for (std::size_t i = connections_.size(); i-- > 0;) {
      if (ready[i + 2].revents != 0 && !answerAll(connections_[i].get(), input)) {
        connections_.erase(connections_.begin() + static_cast<std::ptrdiff_t>(i));
      }
    }
    if (ready[1].revents != 0) {
      accept();
    }
  }
}

}  // namespace tervain::fuzz
