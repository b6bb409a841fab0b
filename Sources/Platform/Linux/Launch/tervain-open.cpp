// Opens an application of the desktop, and ends once the system has it:
//
//   tervain-open -a NAME     the application of a desktop entry: see EntrySearch.h
//   tervain-open BUNDLE      an executable file, or a folder that holds one of its own name without
//                            the suffix, or one named "AppRun"
//
// The application gets /dev/null as its standard streams, nothing else of this process, and a
// session of its own. The exit status is an OpenStatus.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>

#include "Platform/Linux/Launch/EntrySearch.h"
#include "Platform/Linux/Launch/GObjects.h"
#include "Platform/Linux/Launch/OpenStatus.h"

namespace tervain::Linux {
namespace {

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

/// Whether a program is made with Chromium, as Electron's are. They bring the same files, beside
/// the program, above it, or, if it is a script, in a folder of its name.
bool isMadeWithChromium(const std::filesystem::path& program) {
  namespace fs = std::filesystem;
  const Owned<char> found(g_find_program_in_path(program.c_str()));
  if (!found) {
    return false;
  }
  std::error_code error;
  const fs::path above = fs::canonical(found.get(), error).parent_path();
  const fs::path name = program.filename();
  const std::array folders{above, above.parent_path(), "/usr/lib" / name, "/usr/share" / name,
                           "/opt" / name};
  return std::any_of(folders.begin(), folders.end(), [&error](const fs::path& folder) {
    return fs::exists(folder / "chrome_100_percent.pak", error);
  });
}

/// A command with an option, which comes before what is to be opened.
std::string withOption(std::string command, std::string_view option) {
  std::size_t at = command.find(" %");
  at = at == std::string::npos ? command.size() : at;
  return command.insert(at, " ").insert(at + 1, option);
}

/// The same entry with another command. Null if there can be none.
Owned<GDesktopAppInfo> withCommand(GDesktopAppInfo* entry, const std::string& command) {
  constexpr auto everything =
      static_cast<GKeyFileFlags>(G_KEY_FILE_KEEP_COMMENTS | G_KEY_FILE_KEEP_TRANSLATIONS);
  const char* const path = g_desktop_app_info_get_filename(entry);
  const Owned<GKeyFile> file(g_key_file_new());
  if (!path || g_key_file_load_from_file(file.get(), path, everything, nullptr) == 0) {
    return nullptr;
  }
  g_key_file_set_string(file.get(), G_KEY_FILE_DESKTOP_GROUP, G_KEY_FILE_DESKTOP_KEY_EXEC,
                        command.c_str());
  return Owned<GDesktopAppInfo>(g_desktop_app_info_new_from_keyfile(file.get()));
}

/// The entry as it is to be opened: what is made with Chromium shows what is in its windows only
/// when it is told so from the start.
Owned<GDesktopAppInfo> accessible(Owned<GDesktopAppInfo> entry) {
  constexpr std::string_view option = "--force-renderer-accessibility";
  const std::string command = commandOf(entry.get());
  if (!isMadeWithChromium(programIn(command).path) || command.find(option) != std::string::npos) {
    return entry;
  }
  auto changed = withCommand(entry.get(), withOption(command, option));
  return changed ? std::move(changed) : std::move(entry);
}

Outcome openEntry(Owned<GDesktopAppInfo> entry) {
  const std::string id = idOf(entry.get());
  if (g_desktop_app_info_get_boolean(entry.get(), "DBusActivatable") != 0 &&
      g_dbus_is_name(id.c_str()) != 0) {
    if (const Owned<GDBusConnection> bus{g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr)}) {
      return activate(bus.get(), id);
    }
  }
  if (g_desktop_app_info_get_boolean(entry.get(), "Terminal") != 0 && !hasTerminal()) {
    return failed("it runs in a terminal, and no terminal application is installed");
  }
  entry = accessible(std::move(entry));
  GError* error = nullptr;
  const bool opened =
      g_desktop_app_info_launch_uris_as_manager(
          entry.get(), nullptr, nullptr, static_cast<GSpawnFlags>(spawnFlags | G_SPAWN_SEARCH_PATH),
          detach, nullptr, nullptr, nullptr, &error) != 0;
  return outcomeOf(opened, error);
}

Outcome openNamed(const std::string& name) {
  auto entry = findEntry(name);
  return entry ? openEntry(std::move(entry)) : Outcome{OpenStatus::unknown, {}};
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
}  // namespace tervain::Linux

int main(int argc, char** argv) {
  return tervain::Linux::run(argc, argv);
}
