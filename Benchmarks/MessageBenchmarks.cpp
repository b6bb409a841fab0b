// How many messages a dump sends to a Mac's application, which are most of its time: over the macOS
// port, with stand-ins for the system's functions.

#include <algorithm>

#include "MacOSAdapters/FakeSystem.h"
#include "Measurement.h"
#include "ScriptedPlatform/ScriptedStatus.h"
#include "Support/HandlerConnection.h"

namespace tervain::bench {
namespace {

constexpr std::size_t nodes = 800;
constexpr double limit = 3;

/// Messages a node of a dump of an application that has three levels with as many children each.
double messagesPerNode(std::size_t children, bool knowsLists) {
  Fake::System system;
  system.application.knowsLists = knowsLists;
  system.application.childCount = [children](const std::string& element) {
    return std::count(element.begin(), element.end(), ' ') < 4 ? children : 0;
  };
  test::HandlerConnection connection;
  connection.host.ask(R"({"op":"ax_dump","pid":42})");
  return static_cast<double>(system.application.messages) / static_cast<double>(nodes);
}

Row row(const std::string& what, double figure, double each) {
  const auto text = [](double value) { return std::to_string(value).substr(0, 4); };
  return {what,           text(figure), text(each), text(figure / each), "at most 3 messages",
          figure <= limit};
}

}  // namespace
}  // namespace tervain::bench

int main() {
  using namespace tervain::bench;
  std::vector<Row> rows;
  for (const std::size_t children : {10U, 30U, 48U}) {
    rows.push_back(row("messages a node, " + std::to_string(children) +
                           " children each, beside an application asked for each attribute",
                       messagesPerNode(children, true), messagesPerNode(children, false)));
  }
  return printTable(rows) ? EXIT_SUCCESS : EXIT_FAILURE;
}
