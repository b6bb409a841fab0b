#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <utility>

#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/Base64.h"
#include "VMAgentCore/IO.h"
#include "tervainctl/RequestOptions.h"

namespace tervain::ctl {
namespace {

using Number = std::int64_t;

void addPoint(const RequestOptions& request) {
  request.add<Number>("x", "X", "From the left of the main display; may be negative");
  request.add<Number>("y", "Y", "From its top; may be negative");
}

std::string readInput() {
  std::string text;
  std::array<char, readSize> buffer{};
  ssize_t n = 0;
  while ((n = readSome(STDIN_FILENO, buffer)) > 0) {
    text.append(buffer.data(), static_cast<std::size_t>(n));
  }
  if (n < 0) {
    throw AgentError::posix("reading the text", errno);
  }
  return text;
}

void writeFile(const std::string& path, std::string_view bytes) {
  const UniqueFD fd(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (!fd || !writeAll(fd.get(), bytes)) {
    throw AgentError::posix("writing " + path, errno);
  }
}

int takeScreenshot(AgentConnection& connection, const Json& request,
                   const std::optional<std::string>& path) {
  if (!path && isatty(STDOUT_FILENO) == 1) {
    complain("a terminal can't show the picture; give -o FILE, or redirect standard output");
    return badUsage;
  }
  const auto reply = ask(connection, request);
  if (!reply) {
    return failed;
  }
  const std::string* text = stringMember(*reply, "image");
  const auto image = text ? decodeBase64(*text) : std::nullopt;
  if (!image) {
    throw AgentError::posix("decoding the picture", EBADMSG);
  }
  if (path) {
    writeFile(*path, *image);
  } else {
    print(*image);
  }
  const auto scale = reply->find("scale");
  complain(numberText(*reply, "width") + "x" + numberText(*reply, "height") + " pixels, scale " +
           (scale != reply->end() && scale->is_number() ? scale->dump() : "?"));
  return 0;
}

}  // namespace

Action declareScreenshot(CLI::App& options) {
  const RequestOptions request(options, "screenshot");
  request.add<Number>("display", "--display", "Which display, counted from 0 (default: 0)");
  const auto path = std::make_shared<std::optional<std::string>>();
  options.add_option("-o,--output", *path, "The file to write (default: standard output)");
  return [path, request = request.request()](AgentConnection& connection, const Call&) {
    return takeScreenshot(connection, *request, *path);
  };
}

Action declareClick(CLI::App& options) {
  const RequestOptions request(options, "click");
  addPoint(request);
  request.add<std::string>("button", "--button", "Which button (default: left)")
      ->check(CLI::IsMember({"left", "middle", "right"}));
  request.add<Number>("count", "--count", "2 for a double-click, 3 for a triple-click")
      ->check(CLI::Range(1, 3));
  return request.action();
}

Action declareMove(CLI::App& options) {
  const RequestOptions request(options, "move");
  addPoint(request);
  return request.action();
}

Action declareDrag(CLI::App& options) {
  const RequestOptions request(options, "drag");
  const auto setStart = [request = request.request()](const std::pair<Number, Number>& point) {
    (*request)["fromX"] = point.first;
    (*request)["fromY"] = point.second;
  };
  options
      .add_option_function<std::pair<Number, Number>>(
          "--from", setStart, "X and Y of the point to start at (default: where the pointer is)")
      ->type_name("X Y");
  request.add<Number>("toX", "TOX", "From the left of the main display; may be negative");
  request.add<Number>("toY", "TOY", "From its top; may be negative");
  return request.action();
}

Action declareScroll(CLI::App& options) {
  const RequestOptions request(options, "scroll");
  request.add<Number>("dx", "--dx", "How many lines to the left; negative: to the right");
  request.add<Number>("dy", "--dy", "How many lines up; negative: down");
  return request.action();
}

Action declareType(CLI::App& options) {
  const RequestOptions request(options, "type");
  request.add<std::string>("text", "TEXT", "The text, or - to read it from standard input");
  return [request = request.request()](AgentConnection& connection, const Call& call) {
    if (request->at("text") == "-" && call.inSession) {
      complain("in a session standard input has the commands; put the text on the line");
      return failed;
    }
    Json complete = *request;
    if (complete.at("text") == "-") {
      complete["text"] = readInput();
    }
    return tell(connection, complete);
  };
}

Action declareKey(CLI::App& options) {
  const RequestOptions request(options, "key");
  request.add<std::string>("chord", "CHORD", "Modifiers and a key, with + between them");
  return request.action();
}

Action declareLaunch(CLI::App& options) {
  const RequestOptions request(options, "launch_app");
  request.add<std::string>("name", "NAME", "The application's name");
  return request.action();
}

}  // namespace tervain::ctl
