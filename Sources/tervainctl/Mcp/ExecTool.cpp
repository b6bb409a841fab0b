#include "tervainctl/Mcp/ExecTool.h"

#include <cerrno>
#include <cstdio>
#include <memory>

#include "VMAgentClient/RemoteCommand.h"
#include "VMAgentCore/AgentError.h"
#include "tervainctl/Mcp/Results.h"
#include "tervainctl/Mcp/Texts.h"

namespace tervain::mcp {
namespace {

constexpr int usualLimit = 50;  // seconds; hosts give up calls after 60

// Together they stay below the most text that a result has.
constexpr std::size_t mostOutput = 39'000;
constexpr std::size_t mostErrors = 19'500;

struct Outputs {
  BoundedOutput out{mostOutput};
  BoundedOutput err{mostErrors};
};

/// What is not UTF-8 grows when it is replaced, so what was cut may have to be cut again.
std::string bounded(const BoundedOutput& output, std::size_t most, bool& truncated) {
  std::string text = output.text();
  truncated = truncated || output.truncated();
  constexpr std::size_t mark = 100;
  if (text.size() <= most + mark) {
    return text;
  }
  truncated = true;
  BoundedOutput again(most - mark);
  again.append(text);
  return again.text();
}

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

/// A file without a name that holds the input. What is read from it never has to be waited for.
File fileOf(const std::string& input) {
  File file(std::tmpfile(), &std::fclose);
  if (!file || std::fwrite(input.data(), 1, input.size(), file.get()) != input.size() ||
      std::fseek(file.get(), 0, SEEK_SET) != 0) {
    throw AgentError::posix("keeping the command's input", errno);
  }
  return file;
}

Json resultWith(const Outputs& outputs, const std::optional<int>& code,
                const std::string& headline) {
  bool truncated = false;
  const std::string out = bounded(outputs.out, mostOutput, truncated);
  const std::string err = bounded(outputs.err, mostErrors, truncated);
  std::string text = headline + "\n";
  text += out.empty() ? "" : "stdout:\n" + out + (out.ends_with('\n') ? "" : "\n");
  text += err.empty() ? "" : "stderr:\n" + err;
  Json result = textResult(text);
  result["structuredContent"] = {{"exitCode", code ? Json(*code) : Json()},
                                 {"stdout", out},
                                 {"stderr", err},
                                 {"truncated", truncated}};
  result["isError"] = !code;
  return result;
}

std::string seconds(const Json& number) {
  return number.dump() + (number == 1 ? " second" : " seconds");
}

}  // namespace

Json runCommand(AgentConnection connection, const Json& arguments, Interruption& interruption) {
  const double limit = arguments.value("timeout", double{usualLimit});
  const std::string* input = stringMember(arguments, "stdin");
  const File file = input ? fileOf(*input) : File(nullptr, &std::fclose);
  Outputs outputs;
  const auto deadline =
      after(std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(limit)));
  // The agent kills the command when the connection ends.
  const Alarm alarm(deadline, [&interruption] { interruption.endWaits(); });
  RemoteCommand command(std::move(connection), *stringMember(arguments, "command"));
  const auto result =
      command.run({.input = file ? fileno(file.get()) : -1,
                   .onOutput = [&](std::string_view bytes) { outputs.out.append(bytes); },
                   .onError = [&](std::string_view bytes) { outputs.err.append(bytes); }});
  if (const auto* exited = std::get_if<RemoteCommand::Exited>(&result)) {
    const bool known = exited->code >= 0;
    return resultWith(outputs, known ? std::optional(exited->code) : std::nullopt,
                      known ? "exit status " + std::to_string(exited->code)
                            : "The agent can't tell how the command ended.");
  }
  if (const auto* refused = std::get_if<RemoteCommand::Refused>(&result)) {
    return failureResult(refused->message);
  }
  if (alarm.rang()) {
    return resultWith(outputs, std::nullopt,
                      "Killed, as it had not ended after " +
                          seconds(arguments.value("timeout", Json(usualLimit))) +
                          ". Give it a longer timeout, or start it in the background.");
  }
  return resultWith(outputs, std::nullopt,
                    "The connection was lost before the command ended. Call status to see whether "
                    "the guest answers.");
}

}  // namespace tervain::mcp
