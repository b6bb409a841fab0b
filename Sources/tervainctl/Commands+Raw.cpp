#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>

#include "VMAgentCore/AgentError.h"
#include "VMAgentCore/AgentWire.h"
#include "VMAgentCore/IO.h"
#include "tervainctl/Commands.h"

namespace tervain::ctl {
namespace {

bool isExec(std::string_view line) {
  const auto request = parseObject(line);
  const std::string* op = request ? stringMember(*request, "op") : nullptr;
  return op && *op == AgentWire::Exec::op;
}

/// Lines in both directions at once, so that neither side ever waits for the other to read.
class RawExchange {
 public:
  explicit RawExchange(AgentConnection connection) : connection_(std::move(connection)) {}

  int run() {
    for (;;) {
      printReplies();
      if (!inputOpen_ && outstanding_ == 0 && !untilClosed_) {
        return 0;
      }
      if (connection_.ended()) {
        return finish();
      }
      wait();
    }
  }

 private:
  void printReplies() {
    std::string replies;
    while (const auto line = connection_.nextLine()) {
      replies.append(*line).push_back('\n');
      outstanding_ -= outstanding_ > 0 ? 1 : 0;
    }
    print(replies);
  }

  /// The agent closes the connection after an exec; otherwise it has no reason to.
  [[nodiscard]] int finish() const {
    if (!untilClosed_) {
      complain("the agent closed the connection");
      return failed;
    }
    return 0;
  }

  void wait() {
    const bool wantsInput = inputOpen_ && connection_.writable() && !connection_.sending();
    std::array<pollfd, 2> entries{
        {connection_.pollEntry(), {wantsInput ? STDIN_FILENO : -1, POLLIN, 0}}};
    waitForEvents(entries);
    connection_.advance(entries[0].revents);
    if (entries[1].revents != 0) {
      readInput();
    }
  }

  void readInput() {
    const ssize_t n = readSome(STDIN_FILENO, {buffer_.get(), readSize});
    if (n > 0) {
      input_.append({buffer_.get(), static_cast<std::size_t>(n)});
    } else if (n == 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) {
      inputOpen_ = false;
      input_.append("\n");  // the last line may lack it; a line too many is empty
    }
    while (const auto line = input_.next()) {
      if (!line->empty()) {
        send(*line);
      }
    }
  }

  void send(std::string_view line) {
    ++outstanding_;
    untilClosed_ = untilClosed_ || isExec(line);
    connection_.sendLine(line);
  }

  AgentConnection connection_;
  LineSplitBuffer input_;
  std::unique_ptr<char[]> buffer_{new char[readSize]};
  std::size_t outstanding_ = 0;
  bool inputOpen_ = true;
  bool untilClosed_ = false;
};

}  // namespace

int exchangeLines(AgentConnection& connection, const Call& /*call*/) {
  return RawExchange(std::move(connection)).run();
}

}  // namespace tervain::ctl
