#include "tervainctl/Mcp/Snapshots.h"

#include <charconv>
#include <optional>

#include "VMAgentCore/System.h"

namespace tervain::mcp {
namespace {

std::string refOf(std::uint64_t number) {
  return "e" + std::to_string(number);
}

std::optional<std::uint64_t> numberOf(const std::string& ref) {
  std::uint64_t number = 0;
  const char* const end = ref.data() + ref.size();
  if (ref.size() < 2 || ref.front() != 'e') {
    return std::nullopt;
  }
  const auto [rest, error] = std::from_chars(ref.data() + 1, end, number);
  return error == std::errc() && rest == end ? std::optional(number) : std::nullopt;
}

/// In the order of `visit`.
void number(Element& element, std::uint64_t& next) {
  element.ref = refOf(next++);
  for (Element& child : element.children) {
    number(child, next);
  }
}

}  // namespace

Turn::Turn(Look& look, Deadline deadline) : look_(look) {
  std::unique_lock lock(look_.mutex_);
  has_ = System::waitUntil(look_.free_, lock, deadline, [this] { return !look_.taken_; });
  look_.taken_ = true;
}

Turn::~Turn() {
  if (has_) {
    const std::lock_guard lock(look_.mutex_);
    look_.taken_ = false;
    look_.free_.notify_one();
  }
}

void Snapshots::keep(AgentConnection connection, ElementTree& tree) {
  Group group{0, std::make_shared<Look>(std::move(connection)), {}};
  visit(tree.root, [&group](const Element& element, const ElementPath& above) {
    Match& match = group.elements.emplace_back();
    match.visible = visibleFrame(element, above);
    match.element.ref = element.ref;
    match.element.role = element.role;
    match.element.title = element.title;
    match.element.frame = element.frame;
  });
  const std::lock_guard lock(mutex_);
  std::uint64_t next = next_;
  number(tree.root, next);
  add(snapshots_, std::move(group));
}

void Snapshots::keep(AgentConnection connection, std::vector<Match>& found) {
  Group group{0, std::make_shared<Look>(std::move(connection)), found};
  const std::lock_guard lock(mutex_);
  std::uint64_t next = next_;
  for (Match& match : found) {
    match.element.ref = refOf(next++);
  }
  add(searches_, std::move(group));
}

void Snapshots::add(std::deque<Group>& groups, Group group) {
  group.first = next_;
  next_ += group.elements.size();
  groups.push_back(std::move(group));
  if (groups.size() > kept) {
    groups.pop_front();
  }
}

Seen Snapshots::find(const std::string& ref) {
  const auto wanted = numberOf(ref);
  const std::lock_guard lock(mutex_);
  for (const auto* groups : {&snapshots_, &searches_}) {
    for (const Group& group : *groups) {
      if (wanted && *wanted >= group.first && *wanted - group.first < group.elements.size()) {
        return {group.look, group.elements[*wanted - group.first]};
      }
    }
  }
  const bool old = wanted && *wanted > 0 && *wanted < next_;
  throw BadRef("the ref " + serializeLossily(ref) +
               (old ? " is of an older snapshot than the last eight"
                    : " was never given: it is no ref of a snapshot") +
               "; take a new snapshot and use its refs");
}

}  // namespace tervain::mcp
