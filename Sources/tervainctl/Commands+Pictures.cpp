#include <fcntl.h>
#include <unistd.h>

#include "VMAgentClient/Elements.h"
#include "VMAgentClient/Inspection.h"
#include "VMAgentClient/Screenshot.h"
#include "VMAgentCore/IO.h"
#include "tervainctl/Commands.h"

namespace tervain::ctl {
namespace {

void writeFile(const std::string& path, std::string_view bytes) {
  const UniqueFD fd(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (!fd || !writeAll(fd.get(), bytes)) {
    throwWriteError("writing " + path);
  }
}

PictureWish wishOf(const Call& call) {
  const auto number = [&call](const char* key) {
    const auto value = integerMember(call.arguments, key);
    return value ? std::optional(static_cast<int>(*value)) : std::nullopt;
  };
  PictureWish wish{.region = {},
                   .points = given(call, "points"),
                   .longest = number("max"),
                   .quality = number("quality")};
  if (const auto region = call.arguments.find("region"); region != call.arguments.end()) {
    wish.region =
        Frame{region->at("x"), region->at("y"), region->at("width"), region->at("height")};
  }
  return wish;
}

/// How commands begin that are for the same agent and application.
std::string prefixOf(const Call& call) {
  std::string prefix = "tervainctl";
  if (const auto agent = textArgument(call, "agent")) {
    prefix += " --agent " + shellWord(*agent);
  }
  return prefix;
}

}  // namespace

int takeScreenshot(AgentConnection& connection, const Call& call) {
  const auto path = textArgument(call, "output");
  if (!path && isatty(STDOUT_FILENO) == 1) {
    complain("a terminal can't show the picture; give -o FILE, or redirect standard output");
    return badUsage;
  }
  const Screenshot picture = screenshotOf(ask(connection, call), wishOf(call));
  if (path) {
    writeFile(*path, picture.jpeg);
  } else {
    print(picture.jpeg);
  }
  remark(std::to_string(picture.width) + "x" + std::to_string(picture.height) + " pixels, scale " +
         Json(picture.pixelsPerPoint).dump());
  return 0;
}

int inspect(AgentConnection& connection, const Call& call) {
  const ElementTree tree = dump(connection, scopeOf(call));
  const Screenshot picture = screenshotOf(ask(connection, call));
  const std::string path = call.arguments.at("output");
  writeFile(path, inspectionPage(tree, picture, prefixOf(call)));
  remark(std::to_string(countElements(tree.root)) + " elements of " + tree.app + " in " + path);
  return 0;
}

}  // namespace tervain::ctl
