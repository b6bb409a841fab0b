#include "Platform/Linux/Facts.h"

#include <algorithm>
#include <climits>
#include <deque>
#include <string_view>
#include <utility>

namespace tervain {

using AccessibilityBus::Answer;
using AccessibilityBus::Connection;
using AccessibilityBus::Message;
using AccessibilityBus::Object;
using AccessibilityBus::Outcome;
using AXNames::State;

namespace {

constexpr const char* accessible = "org.a11y.atspi.Accessible";
constexpr const char* component = "org.a11y.atspi.Component";
constexpr const char* textInterface = "org.a11y.atspi.Text";
constexpr const char* imageInterface = "org.a11y.atspi.Image";
constexpr const char* editableText = "org.a11y.atspi.EditableText";
constexpr const char* valueInterface = "org.a11y.atspi.Value";
constexpr const char* action = "org.a11y.atspi.Action";

/// How many characters of a text are asked for: more than anybody is shown of it.
constexpr int maxCharacters = 4096;

/// How many actions are looked at, and how long the name of one may be. Applications that mean to
/// be used stay far below.
constexpr int maxActions = 256;
constexpr std::size_t maxActionName = 128;

/// The longest list of children that is fetched as a whole where an element makes its children up
/// as they are asked for, as tables do for each of their cells.
constexpr int maxWholeList = 256;

/// How many of a combo box's children are looked at for a text field.
constexpr int maxLookedInto = 2;

/// One reading under way: waves of questions, each of which waits for the answers to the one
/// before. It lives as long as its questions do.
class Reading : public std::enable_shared_from_this<Reading> {
 public:
  Reading(Connection& connection, const Platform::AXElement::Handle& element,
          const FactsWanted& wanted, FactsHandler done)
      : connection_(connection),
        object_(element.object),
        isApplication_(element.window.empty()),
        wanted_(wanted),
        done_(std::move(done)) {
    facts_.toolkit = element.toolkit;
    facts_.kind.parentRole = wanted_.parentRole.value_or(0);
  }

  /// First what tells whether it shows: many elements don't, and are not asked for more.
  void start() {
    if (asksInTurn()) {
      AXNames::holdsCells(*wanted_.parentRole) ? askForExtents() : askForStates();
      waves_.push_back(&Reading::goOnIfItMayShow);
      return;
    }
    askForStates();
    if (!isApplication_) {
      askForExtents();
    }
    if (wanted_.placeOnly) {
      askForRole();
    } else if (wanted_.atOnce || wanted_.parentRole == AXNames::pageTabList) {
      askForItself();
    }
    waves_.push_back(&Reading::goOnIfItShows);
  }

 private:
  using Wave = void (Reading::*)();

  /// Asks; when the last question of a wave is answered, the next wave goes out.
  template <class Keep>
  void ask(Message question, Keep keep) {
    ++open_;
    connection_.ask(std::move(question), [self = shared_from_this(), keep](const Answer& answer) {
      if (answer) {
        keep(answer);
      } else {
        self->noteFailure(answer.outcome);
      }
      --self->open_;
      self->goOn();
    });
  }

  void goOn() {
    while (open_ == 0 && !waves_.empty()) {
      const Wave wave = waves_.front();
      waves_.pop_front();
      if (outcome_ == Outcome::answered) {
        (this->*wave)();
      }
    }
    if (open_ == 0 && done_) {
      std::exchange(done_, nullptr)(outcome_, std::move(facts_));
    }
  }

  /// An element must at least be able to tell its states; what else it can't tell is left out.
  void noteFailure(Outcome outcome) {
    const bool fatal = outcome == Outcome::timedOut || outcome == Outcome::noBus ||
                       outcome == Outcome::noOwner || outcome == Outcome::noReply;
    if (fatal || (hasAskedForStates_ && !hasStates_)) {
      outcome_ = outcome;
    }
  }

  /// GTK 3 asks the X server where an element is, which takes as long as all else about it. So that
  /// comes second; but for cells, which say that they show even where they are scrolled out of
  /// view. Of tabs the role matters more.
  [[nodiscard]] bool asksInTurn() const {
    return facts_.toolkit == Toolkit::gtk3 && !wanted_.placeOnly && wanted_.parentRole &&
           wanted_.parentRole != AXNames::pageTabList &&
           (!wanted_.atOnce || AXNames::holdsCells(*wanted_.parentRole));
  }

  /// The other half of what tells whether it shows, and what most that do are asked for.
  void goOnIfItMayShow() {
    if (!hasAskedForStates_) {
      if (facts_.extents && facts_.extents->areNowhere()) {
        return;
      }
      askForStates();
    } else if (facts_.shows()) {
      askForExtents();
    } else {
      return;
    }
    askForItself();
    waves_.push_back(&Reading::goOnIfItShows);
  }

  void askForStates() {
    hasAskedForStates_ = true;
    ask(connection_.method(object_, accessible, "GetState"),
        [this](const Answer& answer) { keepStates(answer); });
  }

  void keepInterfaces(const Answer& answer) {
    sd_bus_message* const message = answer.message.get();
    const char* name = nullptr;
    sd_bus_message_enter_container(message, 'a', "s");
    while (sd_bus_message_read_basic(message, 's', &name) > 0) {
      const std::string_view interface = name;
      hasImage_ = hasImage_ || interface == imageInterface;
      hasText_ = hasText_ || interface == textInterface;
      hasValue_ = hasValue_ || interface == valueInterface;
      hasActions_ = hasActions_ || interface == action;
      facts_.hasEditableText = facts_.hasEditableText || interface == editableText;
    }
  }

  void keepStates(const Answer& answer) {
    hasStates_ = true;
    const void* words = nullptr;
    std::size_t size = 0;
    if (sd_bus_message_read_array(answer.message.get(), 'u', &words, &size) > 0) {
      const auto* word = static_cast<const std::uint32_t*>(words);
      facts_.kind.states = size > 0 ? word[0] : 0;
      facts_.kind.states |= size > sizeof *word ? std::uint64_t{word[1]} << 32U : 0;
    }
  }

  void goOnIfItShows() {
    if (!isApplication_ && !facts_.shows()) {
      return;
    }
    if (facts_.extents && facts_.extents->areNowhere()) {
      facts_.extents.reset();
    }
    if (!isLeafInGtk3()) {
      askForChildren();
    }
    if (wanted_.placeOnly) {
      return;
    }
    if (hasAskedForItself_) {
      askForContents();
    } else {
      askForItself();
      waves_.push_back(&Reading::askForContents);
    }
  }

  /// Whether it is one of GTK 3's cells for a text or a picture, which have no children.
  [[nodiscard]] bool isLeafInGtk3() const {
    return facts_.toolkit == Toolkit::gtk3 && facts_.kind.role == AXNames::tableCell &&
           (hasText_ || hasImage_);
  }

  void askForRole() {
    ask(connection_.method(object_, accessible, "GetRole"), [this](const Answer& answer) {
      facts_.kind.role = answer.read<std::uint32_t>('u').value_or(0);
    });
  }

  void askForItself() {
    hasAskedForItself_ = true;
    askForRole();
    ask(connection_.method(object_, accessible, "GetInterfaces"),
        [this](const Answer& answer) { keepInterfaces(answer); });
    ask(connection_.property(object_, accessible, "Name"),
        [this](const Answer& answer) { facts_.name = answer.variantText(); });
  }

  void askForContents() {
    if (AXNames::needsRoleName(facts_.kind.role, facts_.toolkit)) {
      ask(connection_.method(object_, accessible, "GetRoleName"),
          [this](const Answer& answer) { facts_.kind.roleName = answer.text(); });
    }
    if (hasText_) {
      askForText();
    }
    if (hasValue_) {
      ask(connection_.property(object_, valueInterface, "CurrentValue"),
          [this](const Answer& answer) { facts_.number = answer.readVariant<double>('d'); });
    }
    if (hasActions_ && !AXNames::isPassive(facts_.kind.role)) {
      ask(connection_.method(object_, action, "GetActions"),
          [this](const Answer& answer) { keepActions(answer); });
    }
    askForParent();
    if (facts_.kind.role == AXNames::comboBox) {
      askForEntry();
    }
  }

  void askForExtents() {
    Message question = connection_.method(object_, component, "GetExtents");
    constexpr std::uint32_t onScreen = 0;
    sd_bus_message_append(question.get(), "u", onScreen);
    ask(std::move(question), [this](const Answer& answer) {
      Extents e;
      if (sd_bus_message_read(answer.message.get(), "(iiii)", &e.x, &e.y, &e.width, &e.height) >
          0) {
        facts_.extents = e;
      }
    });
  }

  void askForText() {
    if (facts_.toolkit != Toolkit::qt) {
      askForText(maxCharacters);
      return;
    }
    // Qt's editors give nothing when asked for more than they have.
    ask(connection_.property(object_, textInterface, "CharacterCount"),
        [this](const Answer& answer) {
          askForText(std::min(answer.readVariant<std::int32_t>('i').value_or(0), maxCharacters));
        });
  }

  void askForText(int characters) {
    Message question = connection_.method(object_, textInterface, "GetText");
    sd_bus_message_append(question.get(), "ii", 0, characters);
    ask(std::move(question), [this](const Answer& answer) { facts_.text = answer.text(); });
  }

  void keepActions(const Answer& answer) {
    sd_bus_message* const message = answer.message.get();
    sd_bus_message_enter_container(message, 'a', "(sss)");
    const char* name = nullptr;
    const char* description = nullptr;
    const char* key = nullptr;
    for (int i = 0;
         i < maxActions && sd_bus_message_read(message, "(sss)", &name, &description, &key) > 0;
         ++i) {
      if (std::string_view(name).size() <= maxActionName) {
        facts_.actions.push_back({i, name});
      }
    }
  }

  void askForChildren() {
    if (wanted_.maxChildren == 0 || facts_.has(State::managesDescendants)) {
      ask(connection_.property(object_, accessible, "ChildCount"),
          [this](const Answer& answer) { keepChildCount(answer); });
    } else {
      askForAllChildren();
    }
  }

  void askForAllChildren() {
    ask(connection_.method(object_, accessible, "GetChildren"), [this](const Answer& answer) {
      auto objects = readObjects(answer);
      facts_.children = std::move(objects.first);
      facts_.childCount = objects.count;
      facts_.kind.hasChildren = facts_.childCount > 0;
    });
  }

  void keepChildCount(const Answer& answer) {
    const int count = std::max(answer.readVariant<std::int32_t>('i').value_or(0), 0);
    facts_.kind.hasChildren = count > 0;
    facts_.childCount = static_cast<std::size_t>(count);
    if (wanted_.maxChildren == 0 || count == 0) {
      return;
    }
    if (count <= maxWholeList) {
      askForAllChildren();
      return;
    }
    lookForShownChildren();
    waves_.push_front(&Reading::askForShownChildren);
  }

  /// Of a list that is scrolled down, the first children don't show: looks near its upper corner
  /// for one that does.
  void lookForShownChildren() {
    const Extents e = facts_.extents.value_or(Extents{});
    for (const int right : {4, 40}) {  // in the first column, and beside what numbers the rows
      for (int down = 4; down < std::min(e.height, 64); down += 10) {
        Message question = connection_.method(object_, component, "GetAccessibleAtPoint");
        constexpr std::uint32_t onScreen = 0;
        sd_bus_message_append(question.get(), "iiu", e.x + right, e.y + down, onScreen);
        ask(std::move(question), [this](const Answer& answer) { askForIndex(answer); });
      }
    }
  }

  void askForIndex(const Answer& answer) {
    const auto child = readObject(answer);
    if (child && child->path != object_.path) {
      ask(connection_.method(*child, accessible, "GetIndexInParent"), [this](const Answer& index) {
        firstShown_ = std::min(firstShown_, index.read<std::int32_t>('i').value_or(INT_MAX));
      });
    }
  }

  /// The first children, which may be headers, and as many again from the first on that shows.
  void askForShownChildren() {
    const int count = static_cast<int>(facts_.childCount);
    const int some = static_cast<int>(std::min<std::size_t>(wanted_.maxChildren, maxWholeList));
    const int second = firstShown_ >= some && firstShown_ < count ? firstShown_ : some;
    askForChildren(0, some);
    askForChildren(second, std::min(second + some, count));
  }

  void askForChildren(int begin, int end) {
    for (int i = begin; i < end; ++i) {
      Message question = connection_.method(object_, accessible, "GetChildAtIndex");
      sd_bus_message_append(question.get(), "i", i);
      ask(std::move(question), [this](const Answer& child) {
        if (auto object = readObject(child)) {
          facts_.children.push_back(std::move(*object));
        }
      });
    }
  }

  /// The role of the parent, where it matters.
  void askForParent() {
    if (!wanted_.parentRole && AXNames::needsParent(facts_.kind.role)) {
      ask(connection_.property(object_, accessible, "Parent"),
          [this](const Answer& answer) { askForParentRole(answer); });
    }
  }

  void askForParentRole(const Answer& answer) {
    if (sd_bus_message_enter_container(answer.message.get(), 'v', "(so)") <= 0) {
      return;
    }
    if (const auto parent = readObject(answer)) {
      ask(connection_.method(*parent, accessible, "GetRole"), [this](const Answer& role) {
        facts_.kind.parentRole = role.read<std::uint32_t>('u').value_or(0);
      });
    }
  }

  /// Whether a combo box has a text field among its first children.
  void askForEntry() {
    for (int i = 0; i < maxLookedInto; ++i) {
      Message question = connection_.method(object_, accessible, "GetChildAtIndex");
      sd_bus_message_append(question.get(), "i", i);
      ask(std::move(question), [this](const Answer& answer) {
        if (const auto child = readObject(answer)) {
          ask(connection_.method(*child, accessible, "GetRole"), [this](const Answer& roleAnswer) {
            const auto role = roleAnswer.read<std::uint32_t>('u');
            facts_.kind.hasEntry = facts_.kind.hasEntry || (role && AXNames::isEntry(*role));
          });
        }
      });
    }
  }

  Connection& connection_;
  Object object_;
  bool isApplication_;
  FactsWanted wanted_;
  FactsHandler done_;
  Facts facts_;
  Outcome outcome_ = Outcome::answered;
  int open_ = 0;              // questions that wait for their answers
  std::deque<Wave> waves_;    // each goes out when there are no open questions
  int firstShown_ = INT_MAX;  // the index of the first child that is known to show
  bool hasAskedForStates_ = false;
  bool hasStates_ = false;
  bool hasAskedForItself_ = false;
  bool hasImage_ = false;
  bool hasText_ = false;
  bool hasValue_ = false;
  bool hasActions_ = false;
};

}  // namespace

bool Facts::shows() const {
  // A tab may be hidden while the page below it is not: editors do so with a single document.
  const bool isTab = kind.role == AXNames::pageTab && kind.parentRole == AXNames::pageTabList;
  if (kind.role == AXNames::application || isTab) {
    return true;
  }
  // Qt says of lists in closed boxes that they show, and gives them no size. GTK 4 says it of
  // windows alone.
  if (extents && extents->areNowhere()) {
    return false;
  }
  return has(State::showing) || (toolkit == Toolkit::gtk4 && has(State::visible));
}

bool Facts::isEnabled() const {
  return has(State::sensitive) || has(State::enabled);
}

std::vector<std::string> actionNamesOf(const Facts& facts) {
  std::vector<std::string> names;
  const auto add = [&names](std::string name) {
    if (std::find(names.begin(), names.end(), name) == names.end()) {
      names.push_back(std::move(name));
    }
  };
  for (const ToolkitAction& offered : facts.actions) {
    if (auto name = AXNames::actionName(offered.name, facts.kind.role)) {
      add(std::move(*name));
    }
  }
  if (facts.kind.role == AXNames::pageTab) {
    add("AXPress");  // by selecting it
  }
  if (facts.number && AXNames::isAdjustable(facts.kind.role)) {
    add("AXIncrement");
    add("AXDecrement");
  }
  if (AXNames::namesOf(facts.kind).role == "AXWindow") {
    add("AXRaise");
  }
  return names;
}

void readFacts(Connection& connection, const Platform::AXElement::Handle& element,
               const FactsWanted& wanted, FactsHandler done) {
  std::make_shared<Reading>(connection, element, wanted, std::move(done))->start();
}

FactsNow readFactsNow(Connection& connection, const Platform::AXElement::Handle& element,
                      const FactsWanted& wanted, AccessibilityBus::Clock::time_point deadline) {
  FactsNow result;
  readFacts(connection, element, wanted, [&result](Outcome outcome, Facts facts) {
    result = {outcome, std::move(facts)};
  });
  connection.run(element.timeout, deadline);
  return result;
}

}  // namespace tervain
