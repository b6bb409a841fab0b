// Opens an application of the desktop, and ends once the system has it:
//
//   tervain-open -a NAME     the application that a desktop entry describes, by its identifier, its
//                            localised or plain name, its program or its window class
//   tervain-open BUNDLE      an executable file, or a folder that holds one of its own name without
//                            the suffix, or one named "AppRun"
//
// The application gets /dev/null as its standard streams, nothing else of this process, and a
// session of its own. The exit status is an OpenStatus.

#include <fcntl.h>
#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "Platform/Linux/OpenStatus.h"

namespace tervain {
namespace {

struct Release {
  void operator()(GError* error) const { g_error_free(error); }
  void operator()(GList* list) const { g_list_free(list); }
  void operator()(GVariant* variant) const { g_variant_unref(variant); }
  void operator()(char* text) const { g_free(text); }
  template <class T>
  void operator()(T* object) const {
    g_object_unref(object);
  }
};
template <class T>
using Owned = std::unique_ptr<T, Release>;

/// How it went, and why if it failed.
struct Outcome {
  OpenStatus status = OpenStatus::opened;
  std::string why;
};

Outcome failed(std::string_view why) {
  return {OpenStatus::failed, std::string(why)};
}

Outcome outcomeOf(bool opened, GError* error) {
  const Owned<GError> owned(error);
  return opened ? Outcome{} : failed(error ? error->message : "no reason given");
}

/// How long an application that the session bus starts may take to answer.
constexpr int activationLimit = 10'000;  // milliseconds

constexpr auto spawnFlags = static_cast<GSpawnFlags>(
    G_SPAWN_DO_NOT_REAP_CHILD | G_SPAWN_STDOUT_TO_DEV_NULL | G_SPAWN_STDERR_TO_DEV_NULL);

/// What the application does before it becomes itself: what ends this session, or is typed to it,
/// must not reach it.
void detach(void* /*unused*/) {
  setsid();
  static_cast<void>(std::signal(SIGPIPE, SIG_DFL));  // the bus library ignores it
}

/// For comparing names regardless of case.
std::string folded(const char* text) {
  const Owned<char> result(g_utf8_casefold(text ? text : "", -1));
  return result.get();
}

std::string withoutSuffix(std::string text, std::string_view suffix) {
  if (text.ends_with(suffix)) {
    text.resize(text.size() - suffix.size());
  }
  return text;
}

GAppInfo* asApp(GDesktopAppInfo* entry) {
  return reinterpret_cast<GAppInfo*>(entry);
}

std::string entryString(GDesktopAppInfo* entry, const char* key) {
  const Owned<char> text(g_desktop_app_info_get_string(entry, key));
  return folded(text.get());
}

std::string idOf(GDesktopAppInfo* entry) {
  const char* const id = g_app_info_get_id(asApp(entry));
  return withoutSuffix(id ? id : "", ".desktop");
}

/// How well an entry fits a case-folded name; 0 if not at all.
int score(GDesktopAppInfo* entry, const std::string& name) {
  const std::string id = folded(idOf(entry).c_str());
  if (id == name) {
    return 6;
  }
  if (g_app_info_should_show(asApp(entry)) == 0) {
    return 0;
  }
  const std::string localised = folded(g_app_info_get_name(asApp(entry)));
  const std::string plain = entryString(entry, "Name");
  if (localised == name || plain == name) {
    return 5;
  }
  if (id.substr(id.rfind('.') + 1) == name) {  // "org.gnome.Maps" is known as Maps
    return 4;
  }
  const char* const program = g_app_info_get_executable(asApp(entry));
  if (program != nullptr && folded(std::filesystem::path(program).filename().c_str()) == name) {
    return 3;
  }
  if (entryString(entry, "StartupWMClass") == name) {
    return 2;
  }
  return localised.starts_with(name) || plain.starts_with(name) ? 1 : 0;
}

/// The entry that fits best; among equals the one whose identifier comes first.
Owned<GDesktopAppInfo> bestEntry(const std::string& name) {
  const Owned<GList> all(g_app_info_get_all());
  Owned<GDesktopAppInfo> best;
  int bestScore = 0;
  for (const GList* item = all.get(); item; item = item->next) {
    Owned<GDesktopAppInfo> entry(static_cast<GDesktopAppInfo*>(item->data));
    const int itsScore = score(entry.get(), name);
    if (itsScore > bestScore ||
        (itsScore > 0 && itsScore == bestScore && idOf(entry.get()) < idOf(best.get()))) {
      best = std::move(entry);
      bestScore = itsScore;
    }
  }
  return best;
}

Owned<GDesktopAppInfo> findEntry(const std::string& name) {
  const std::string id = withoutSuffix(name, ".desktop");
  // A name with a slash in it would be taken for a path.
  if (id.find('/') == std::string::npos) {
    if (Owned<GDesktopAppInfo> entry{g_desktop_app_info_new((id + ".desktop").c_str())}) {
      return entry;
    }
  }
  auto entry = bestEntry(folded(id.c_str()));
  const std::string stem = withoutSuffix(name, ".app");
  return entry || stem == name ? std::move(entry) : findEntry(stem);
}

/// Has the session bus start an application that wants it so, or bring it up if it runs already.
Outcome activate(GDBusConnection* bus, const std::string& id) {
  std::string path = "/" + id;
  std::replace(path.begin(), path.end(), '.', '/');
  std::replace(path.begin(), path.end(), '-', '_');
  GError* error = nullptr;
  const Owned<GVariant> answer(
      g_dbus_connection_call_sync(bus, id.c_str(), path.c_str(), "org.freedesktop.Application",
                                  "Activate", g_variant_new("(a{sv})", nullptr), nullptr,
                                  G_DBUS_CALL_FLAGS_NONE, activationLimit, nullptr, &error));
  return outcomeOf(answer != nullptr, error);
}

/// Whether there is one of the terminals that an entry without a window can be opened in. Without
/// one the launch would seem to work.
bool hasTerminal() {
  constexpr std::array terminals{"xdg-terminal-exec", "kgx",   "gnome-terminal", "mate-terminal",
                                 "xfce4-terminal",    "tilix", "konsole",        "nxterm",
                                 "color-xterm",       "rxvt",  "dtterm",         "xterm"};
  return std::any_of(std::begin(terminals), std::end(terminals), [](const char* terminal) {
    return Owned<char>(g_find_program_in_path(terminal)) != nullptr;
  });
}

Outcome openEntry(GDesktopAppInfo* entry) {
  const std::string id = idOf(entry);
  if (g_desktop_app_info_get_boolean(entry, "DBusActivatable") != 0 &&
      g_dbus_is_name(id.c_str()) != 0) {
    if (const Owned<GDBusConnection> bus{g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr)}) {
      return activate(bus.get(), id);
    }
  }
  if (g_desktop_app_info_get_boolean(entry, "Terminal") != 0 && !hasTerminal()) {
    return failed("it runs in a terminal, and no terminal application is installed");
  }
  GError* error = nullptr;
  const bool opened =
      g_desktop_app_info_launch_uris_as_manager(
          entry, nullptr, nullptr, static_cast<GSpawnFlags>(spawnFlags | G_SPAWN_SEARCH_PATH),
          detach, nullptr, nullptr, nullptr, &error) != 0;
  return outcomeOf(opened, error);
}

Outcome openNamed(const std::string& name) {
  const auto entry = findEntry(name);
  return entry ? openEntry(entry.get()) : Outcome{OpenStatus::unknown, {}};
}

bool isProgram(const std::filesystem::path& path) {
  std::error_code error;
  return std::filesystem::is_regular_file(path, error) && access(path.c_str(), X_OK) == 0;
}

Outcome openBundle(const std::filesystem::path& bundle) {
  for (const auto& program : {bundle, bundle / bundle.stem(), bundle / "AppRun"}) {
    if (isProgram(program)) {
      std::string path = program.string();
      std::array<char*, 2> command{path.data(), nullptr};
      GError* error = nullptr;
      const bool opened = g_spawn_async(nullptr, command.data(), nullptr, spawnFlags, detach,
                                        nullptr, nullptr, &error) != 0;
      return outcomeOf(opened, error);
    }
  }
  return failed("there is no program in it that this system can run");
}

int run(int argc, char** argv) {
  const bool named = argc == 3 && std::string_view(argv[1]) == "-a";
  if (!named && argc != 2) {
    static_cast<void>(std::fputs("usage: tervain-open -a NAME | BUNDLE\n", stderr));
    return static_cast<int>(OpenStatus::failed);
  }
  // Whoever waits for our words waits for the end of this: nothing that we start may keep it.
  std::FILE* const words = fdopen(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0), "w");
  dup2(STDERR_FILENO, STDOUT_FILENO);
  const Outcome outcome = named ? openNamed(argv[2]) : openBundle(argv[1]);
  if (words) {
    static_cast<void>(std::fputs(outcome.why.c_str(), words));
    static_cast<void>(std::fclose(words));
  }
  return static_cast<int>(outcome.status);
}

}  // namespace
}  // namespace tervain

int main(int argc, char** argv) {
  return tervain::run(argc, argv);
}
