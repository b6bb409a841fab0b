#include "Platform/Linux/Launch/EntrySearch.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <span>
#include <string_view>

namespace tervain::Linux {
namespace {

/// How a name fits an entry, the better ones last.
enum class Fit { none, windowClass, programWithOptions, program, lastPart, name, identifier };

/// Has every occurrence of a part be an "i".
void makeEachAnI(std::string& text, std::string_view part) {
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) {
    text.erase(at, part.size()).insert(at, 1, 'i');
  }
}

/// For comparing names. Empty if the text is not UTF-8.
std::string folded(const char* text) {
  const Owned<char> apart(g_utf8_normalize(text ? text : "", -1, G_NORMALIZE_DEFAULT));
  const Owned<char> lower(g_utf8_casefold(apart ? apart.get() : "", -1));
  std::string result = Owned<char>(g_utf8_normalize(lower.get(), -1, G_NORMALIZE_DEFAULT)).get();
  // Turkish has other pairs of small and capital i than most languages.
  makeEachAnI(result, "i\u0307");
  makeEachAnI(result, "\u0131");
  return result;
}

GAppInfo* asApp(GDesktopAppInfo* entry) {
  return reinterpret_cast<GAppInfo*>(entry);
}

std::string foldedString(GDesktopAppInfo* entry, const char* key) {
  return folded(Owned<char>(g_desktop_app_info_get_string(entry, key)).get());
}

std::string withoutSuffix(std::string text, std::string_view suffix) {
  if (text.ends_with(suffix)) {
    text.resize(text.size() - suffix.size());
  }
  return text;
}

/// Whether the entry is for this desktop's menus. Of a desktop that does not say which it is,
/// nothing is held back.
bool isToBeShown(GDesktopAppInfo* entry) {
  return std::getenv("XDG_CURRENT_DESKTOP") ? g_app_info_should_show(asApp(entry)) != 0
                                            : g_desktop_app_info_get_nodisplay(entry) == 0;
}

Fit fitOfProgram(GDesktopAppInfo* entry, const std::string& name) {
  const CommandProgram program = programIn(commandOf(entry));
  if (program.arguments == CommandProgram::Arguments::others ||
      folded(std::filesystem::path(program.path).filename().c_str()) != name) {
    return Fit::none;
  }
  return program.arguments == CommandProgram::Arguments::none ? Fit::program
                                                              : Fit::programWithOptions;
}

/// How a folded name fits an entry.
Fit fitOf(GDesktopAppInfo* entry, const std::string& name) {
  const std::string id = folded(idOf(entry).c_str());
  if (id == name) {
    return Fit::identifier;
  }
  if (!isToBeShown(entry)) {
    return Fit::none;
  }
  if (folded(g_app_info_get_name(asApp(entry))) == name ||
      foldedString(entry, G_KEY_FILE_DESKTOP_KEY_NAME) == name) {
    return Fit::name;
  }
  if (id.substr(id.rfind('.') + 1) == name) {  // "org.gnome.Maps" is known as Maps
    return Fit::lastPart;
  }
  const Fit asProgram = fitOfProgram(entry, name);
  const bool isClass = foldedString(entry, G_KEY_FILE_DESKTOP_KEY_STARTUP_WM_CLASS) == name;
  return asProgram == Fit::none && isClass ? Fit::windowClass : asProgram;
}

Owned<GDesktopAppInfo> bestEntry(const std::string& name) {
  const Owned<GList> all(g_app_info_get_all());
  Owned<GDesktopAppInfo> best;
  Fit bestFit = Fit::none;
  for (const GList* item = all.get(); item; item = item->next) {
    Owned<GDesktopAppInfo> entry(static_cast<GDesktopAppInfo*>(item->data));
    const Fit fit = fitOf(entry.get(), name);
    if (fit > bestFit ||
        (fit != Fit::none && fit == bestFit && idOf(entry.get()) < idOf(best.get()))) {
      best = std::move(entry);
      bestFit = fit;
    }
  }
  return best;
}

Owned<GDesktopAppInfo> entryNamed(const std::string& name) {
  // A name with a slash in it would be taken for a path.
  if (name.find('/') == std::string::npos) {
    if (Owned<GDesktopAppInfo> entry{g_desktop_app_info_new((name + ".desktop").c_str())}) {
      return entry;
    }
  }
  const std::string wanted = folded(name.c_str());
  // What an entry lacks would be the same as no name.
  return wanted.empty() ? nullptr : bestEntry(wanted);
}

}  // namespace

std::string idOf(GDesktopAppInfo* entry) {
  const char* const id = g_app_info_get_id(asApp(entry));
  return withoutSuffix(id ? id : "", ".desktop");
}

std::string commandOf(GDesktopAppInfo* entry) {
  const char* const command = g_app_info_get_commandline(asApp(entry));
  return command ? command : "";
}

CommandProgram programIn(const std::string& command) {
  int count = 0;
  char** parsed = nullptr;
  if (g_shell_parse_argv(command.c_str(), &count, &parsed, nullptr) == 0) {
    return {};
  }
  const Owned<char*> owner(parsed);
  const std::span<char*> words(parsed, static_cast<std::size_t>(count));
  auto word = words.begin();
  if (std::filesystem::path(*word).filename() == "env") {
    const auto isAssignment = [](std::string_view text) {
      return text.find('=') != std::string_view::npos;
    };
    word = std::find_if_not(word + 1, words.end(), isAssignment);
    if (word == words.end()) {
      return {};
    }
  }
  CommandProgram program{*word, CommandProgram::Arguments::none};
  for (const std::string_view argument : std::span(word + 1, words.end())) {
    if (!argument.starts_with('%')) {
      program.arguments = std::max(program.arguments, argument.starts_with('-')
                                                          ? CommandProgram::Arguments::options
                                                          : CommandProgram::Arguments::others);
    }
  }
  return program;
}

Owned<GDesktopAppInfo> findEntry(const std::string& name) {
  for (const std::string& form :
       {name, withoutSuffix(name, ".desktop"), withoutSuffix(name, ".app")}) {
    if (auto entry = entryNamed(form)) {
      return entry;
    }
  }
  return nullptr;
}

}  // namespace tervain::Linux
