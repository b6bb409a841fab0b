#include "Platform/Linux/Accessibility/SnapshotReader.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <set>
#include <utility>

namespace tervain::Linux {

using AccessibilityBus::Call;
using AccessibilityBus::Connection;
using AccessibilityBus::Object;
using AccessibilityBus::Outcome;
using AccessibilityBus::Reply;
using Atspi::Interface;
using Atspi::Role;
using Atspi::State;

namespace {

/// How many characters of a text are asked for: more than anybody is shown of it.
constexpr int maxCharacters = 4096;

/// The longest list of children that is fetched as a whole where an element makes its children up
/// as they are asked for, as tables do for each of their cells.
constexpr int maxWholeList = 256;

/// How many of a combo box's children are looked at for a text field.
constexpr int maxLookedInto = 2;

/// Points near a corner of an element: how far right and down from the upper left corner they are,
/// or, if negative, from the opposite one.
struct Corner {
  std::initializer_list<int> right;
  std::initializer_list<int> down;
};
// In the first column and beside what numbers the rows; below headers.
constexpr Corner upperLeft{{4, 40}, {4, 14, 24, 34, 44, 54}};
// Beside scroll bars.
constexpr Corner upperRight{{-4, -24}, {4, 34}};
constexpr Corner lowerLeft{{4, 40}, {-4, -24}};

/// One reading under way. It lives as long as its questions do.
class Reading : public std::enable_shared_from_this<Reading> {
 public:
  Reading(Connection& connection, const Platform::AXElement::Handle& element,
          const SnapshotRequest& request, std::function<void(SnapshotReply)> done)
      : connection_(connection),
        object_(element.object),
        isApplication_(element.window.empty()),
        row_(element.row),
        request_(request),
        done_(std::move(done)) {
    if (request_.learned && !row_ && !isApplication_) {  // GTK 4 gives its root no children there
      const auto found = request_.learned->items.find(object_.path);
      item_ = found == request_.learned->items.end() ? nullptr : &found->second;
    }
    snapshot_.toolkit = element.toolkit;
    snapshot_.kind.parentRole = request_.parentRole.value_or(Role::invalid);
  }

  void start() {
    stage_ = first();
    goOn();  // all of that may be known
  }

 private:
  /// What has been asked for. When all of it is answered, the reading goes on to the next stage.
  enum class Stage {
    states,            ///< alone, since many elements don't show, and are not asked for more
    extents,           ///< alone, for the same reason
    place,             ///< states and extents: whether it shows
    placeAndIdentity,  ///< both at a time
    identity,          ///< its role, its name and what it can be asked, once it is known to show
    row,               ///< the cells of a row
    rest,
    shownCells,  ///< the rest, and which cells of a table show
    headers,     ///< the headers of the columns that show
    end
  };

  /// Asks for the first stage, and gives it.
  Stage first() {
    if (row_) {
      askForRow();
      return Stage::row;
    }
    if (asksInTurn()) {
      if (Roles::holdsCells(*request_.parentRole)) {
        askForExtents();
        return Stage::extents;
      }
      askForStates();
      return Stage::states;
    }
    askForStates();
    if (!isApplication_) {
      askForExtents();
    }
    if (request_.placeOnly) {
      askForRole();
      return Stage::place;
    }
    if (request_.atOnce || request_.parentRole == Role::pageTabList) {
      askForIdentity();
      return Stage::placeAndIdentity;
    }
    return Stage::place;
  }

  /// Asks for the stage that follows, and gives it.
  Stage next() {
    if (firstShown_) {
      askForShownChildren(*std::exchange(firstShown_, std::nullopt));
      return stage_;
    }
    switch (stage_) {
      case Stage::states:
        if (!snapshot_.shows()) {
          return Stage::end;
        }
        askForExtents();
        askForIdentity();
        return Stage::placeAndIdentity;
      case Stage::extents:
        if (snapshot_.extents && snapshot_.extents->areNowhere()) {
          return Stage::end;
        }
        askForStates();
        askForIdentity();
        return Stage::placeAndIdentity;
      case Stage::place:
      case Stage::placeAndIdentity:
        return afterPlace();
      case Stage::identity:
        return contents();
      case Stage::row:
        return afterRow();
      case Stage::shownCells:
        askForHeaders();
        return Stage::headers;
      case Stage::headers:
        addRows();
        return Stage::end;
      case Stage::rest:
      case Stage::end:
        break;
    }
    return Stage::end;
  }

  Stage afterPlace() {
    if (!isApplication_ && !snapshot_.shows()) {
      return Stage::end;
    }
    if (snapshot_.extents && snapshot_.extents->areNowhere()) {
      snapshot_.extents.reset();
    }
    if (!isLeafInGtk3() && (request_.placeOnly || !snapshot_.has(State::managesDescendants))) {
      askForChildren();
    }
    if (stage_ == Stage::placeAndIdentity) {
      return contents();
    }
    if (request_.placeOnly) {
      return Stage::rest;
    }
    askForIdentity();
    return Stage::identity;
  }

  Stage contents() {
    askForContents();
    if (!snapshot_.has(State::managesDescendants)) {
      return Stage::rest;
    }
    if (request_.maxChildren > 0 && Roles::hasRows(snapshot_.kind.role) &&
        snapshot_.interfaces.has(Interface::table)) {
      askForShownCells();
      return Stage::shownCells;
    }
    askForChildren();
    return Stage::rest;
  }

  /// A row is where its cells are, and shows if they do.
  Stage afterRow() {
    if (snapshot_.children.empty()) {
      return Stage::end;
    }
    askToInclude(snapshot_.children.front().object);
    if (snapshot_.children.size() > 1) {
      askToInclude(snapshot_.children.back().object);
    }
    return Stage::rest;
  }

  void askToInclude(const Object& cell) {
    ask(Atspi::getExtents(connection_, cell), [this, path = cell.path](const auto& extents) {
      if (extents && !extents->areNowhere()) {
        if (request_.learned) {
          request_.learned->cells.insert_or_assign(path, *extents);
        }
        snapshot_.extents = snapshot_.extents ? snapshot_.extents->with(*extents) : *extents;
        snapshot_.kind.states = {State::enabled, State::showing, State::visible};
      }
    });
  }

  /// GTK 3 asks the X server where an element is, which takes as long as all else about it. So that
  /// comes second; but for cells, which say that they show even where they are scrolled out of
  /// view. Of tabs the role matters more.
  [[nodiscard]] bool asksInTurn() const {
    return snapshot_.toolkit == Toolkit::gtk3 && !request_.placeOnly && request_.parentRole &&
           request_.parentRole != Role::pageTabList &&
           (!request_.atOnce || Roles::holdsCells(*request_.parentRole));
  }

  /// Whether it is one of GTK 3's cells for a text or a picture, which have no children.
  [[nodiscard]] bool isLeafInGtk3() const {
    return snapshot_.toolkit == Toolkit::gtk3 && snapshot_.kind.role == Role::tableCell &&
           (snapshot_.interfaces.has(Interface::text) ||
            snapshot_.interfaces.has(Interface::image));
  }

  /// Asks; `keep` is called with what the answer says, if there is one.
  template <class T, class Keep>
  void ask(Call<T> call, Keep keep) {
    ++open_;
    connection_.ask(std::move(call), [self = shared_from_this(), keep](Reply<T> reply) {
      if (reply) {
        keep(std::move(reply.value));
      } else {
        self->noteFailure(reply.outcome);
      }
      --self->open_;
      self->goOn();
    });
  }

  /// The same, of the element itself.
  template <class T, class Keep>
  void ask(Call<T> (*call)(const Connection&, const Object&), Keep keep) {
    ask(call(connection_, object_), std::move(keep));
  }

  void goOn() {
    while (open_ == 0 && stage_ != Stage::end) {
      stage_ = outcome_ == Outcome::answered ? next() : Stage::end;
    }
    if (stage_ == Stage::end) {
      done_({outcome_, std::move(snapshot_)});
    }
  }

  /// An element must at least be able to tell its states; what else it can't tell is left out.
  void noteFailure(Outcome outcome) {
    const bool hasGone = outcome == Outcome::noOwner || outcome == Outcome::noReply;
    const bool lacksStates = stage_ != Stage::extents && !hasStates_;
    if (hasGone || isGivenUp(outcome) || lacksStates) {
      outcome_ = outcome;
    }
  }

  void askForStates() {
    if (item_) {
      snapshot_.kind.states = item_->states;
      // It may have gone since, which its place tells then.
      hasStates_ = !item_->interfaces.has(Interface::component);
      return;
    }
    ask(Atspi::getState, [this](Atspi::States states) {
      hasStates_ = true;
      snapshot_.kind.states = states;
    });
  }

  void askForExtents() {
    if (auto known = request_.learned ? request_.learned->cells.extract(object_.path)
                                      : decltype(Learned::cells)::node_type()) {
      snapshot_.extents = known.mapped();
      return;
    }
    ask(Atspi::getExtents, [this](std::optional<Atspi::Extents> extents) {
      hasStates_ = hasStates_ || item_;
      snapshot_.extents = extents;
    });
  }

  void askForRole() {
    ask(Atspi::getRole, [this](Role role) { snapshot_.kind.role = role; });
  }

  void askForIdentity() {
    if (item_) {
      snapshot_.kind.role = item_->role;
      snapshot_.interfaces = item_->interfaces;
      snapshot_.name = item_->name;
      return;
    }
    askForRole();
    ask(Atspi::getInterfaces,
        [this](Atspi::Interfaces interfaces) { snapshot_.interfaces = interfaces; });
    ask(Atspi::getName, [this](std::string name) { snapshot_.name = std::move(name); });
  }

  void askForContents() {
    const Atspi::Interfaces& interfaces = snapshot_.interfaces;
    if (Roles::needsRoleName(snapshot_.kind.role, snapshot_.toolkit)) {
      ask(Atspi::getRoleName,
          [this](std::string name) { snapshot_.kind.roleName = std::move(name); });
    }
    if (snapshot_.kind.role == Role::comboBox && isBrowser(snapshot_.toolkit) &&
        !snapshot_.has(State::editable)) {
      askForSelectedText();
    } else if (interfaces.has(Interface::text)) {
      askForText();
    }
    if (interfaces.has(Interface::value)) {
      ask(Atspi::getCurrentValue,
          [this](std::optional<double> number) { snapshot_.number = number; });
    }
    if (interfaces.has(Interface::action) && !Roles::isPassive(snapshot_.kind.role)) {
      askForActions();
    }
    if (!request_.parentRole && Roles::needsParent(snapshot_.kind.role)) {
      askForParentRole();
    }
    if (snapshot_.kind.role == Role::comboBox) {
      askForTextField();
    }
  }

  void askForText() {
    if (snapshot_.toolkit != Toolkit::gtk3 && snapshot_.toolkit != Toolkit::gtk4 &&
        snapshot_.toolkit != Toolkit::chromium) {
      askForCountedText();
      return;
    }
    askForText(maxCharacters + 1, [this](const std::string& text) {
      if (text.empty()) {
        askForCountedText();  // LibreOffice, which says that it is GTK 3, is another of those
      } else {
        keepText(text, countCharacters(text) > std::size_t{maxCharacters});
      }
    });
  }

  /// For those that give nothing when asked for more than they have, as Qt's editors and Gecko.
  void askForCountedText() {
    ask(Atspi::getCharacterCount, [this](int count) {
      if (count <= 0) {
        keepText({}, false);
        return;
      }
      askForText(std::min(count, maxCharacters),
                 [this, count](const std::string& text) { keepText(text, count > maxCharacters); });
    });
  }

  template <class Keep>
  void askForText(int characters, Keep keep) {
    ask(Atspi::getText(connection_, object_, 0, characters), keep);
  }

  void keepText(const std::string& text, bool isCut) {
    snapshot_.text = readableText(text, snapshot_.toolkit) + (isCut ? "…" : "");
  }

  void askForActions() {
    if (snapshot_.toolkit == Toolkit::qt) {  // which translates none
      ask(Atspi::getActions,
          [this](std::vector<Atspi::Action> actions) { snapshot_.actions = std::move(actions); });
      return;
    }
    const bool isGtk4 = snapshot_.toolkit == Toolkit::gtk4;
    if (!isGtk4 && (snapshot_.toolkit != Toolkit::gtk3 || !request_.learned)) {
      ask(Atspi::getActionCount, [this](int count) {
        for (int index = 0; index < count; ++index) {
          askForActionName(index, [](const std::string&) {});
        }
      });
      return;
    }
    // Those of GTK 4's menus, which nobody needs and nobody translates, are most of them.
    ask(Atspi::getActions, [this, isGtk4](const std::vector<Atspi::Action>& actions) {
      for (const Atspi::Action& action : actions) {
        if (isGtk4 && action.name == "menu.popup") {
          keep(action);
        } else if (!isGtk4 || !Roles::isOfMenus(action.name)) {
          findActionName(action);
        }
      }
    });
  }

  void findActionName(const Atspi::Action& offered) {
    if (!request_.learned || offered.name.empty()) {
      askForActionName(offered.index, [](const std::string&) {});
      return;
    }
    auto& names = request_.learned->actionNames;
    const auto key = std::make_pair(snapshot_.kind.role, offered.name);
    if (const auto known = names.find(key); known != names.end()) {
      keep({offered.index, known->second});
      return;
    }
    askForActionName(offered.index,
                     [&names, key](const std::string& name) { names.insert_or_assign(key, name); });
  }

  template <class Note>
  void askForActionName(int index, Note note) {
    ask(Atspi::getActionName(connection_, object_, index), [this, index, note](std::string name) {
      note(name);
      keep({index, std::move(name)});
    });
  }

  /// In the application's order, whichever is known first.
  void keep(Atspi::Action action) {
    const auto at =
        std::find_if(snapshot_.actions.begin(), snapshot_.actions.end(),
                     [&action](const Atspi::Action& other) { return other.index > action.index; });
    snapshot_.actions.insert(at, std::move(action));
  }

  void askForParentRole() {
    ask(Atspi::getParent, [this](const std::optional<Object>& parent) {
      if (parent) {
        ask(Atspi::getRole(connection_, *parent),
            [this](Role role) { snapshot_.kind.parentRole = role; });
      }
    });
  }

  /// Whether a combo box has a text field among its first children.
  void askForTextField() {
    for (int i = 0; i < maxLookedInto; ++i) {
      ask(Atspi::getChildAtIndex(connection_, object_, i),
          [this](const std::optional<Object>& child) {
            if (child) {
              ask(Atspi::getRole(connection_, *child), [this](Role role) {
                snapshot_.kind.hasTextField =
                    snapshot_.kind.hasTextField || Roles::isTextField(role);
              });
            }
          });
    }
  }

  /// What a box of a page shows is the name of the item that is selected in the list in it.
  void askForSelectedText() {
    ask(Atspi::getChildAtIndex(connection_, object_, 0), [this](const std::optional<Object>& list) {
      if (!list) {
        return;
      }
      ask(Atspi::getSelectedChild(connection_, *list, 0),
          [this](const std::optional<Object>& item) {
            if (item) {
              ask(Atspi::getName(connection_, *item),
                  [this](const std::string& name) { keepText(name, false); });
            }
          });
    });
  }

  void askForChildren() {
    if (item_ && item_->childCount == 0) {
      return;
    }
    if (request_.maxChildren == 0 || snapshot_.has(State::managesDescendants)) {
      ask(Atspi::getChildCount, [this](int count) { keepChildCount(std::max(count, 0)); });
    } else {
      askForAllChildren();
    }
  }

  void askForAllChildren() {
    ask(Atspi::getChildren, [this](Atspi::Objects objects) {
      for (Object& object : objects.first) {
        snapshot_.children.push_back({std::move(object)});
      }
      snapshot_.childCount = objects.count;
      snapshot_.kind.hasChildren = objects.count > 0;
    });
  }

  void keepChildCount(int count) {
    snapshot_.kind.hasChildren = count > 0;
    snapshot_.childCount = static_cast<std::size_t>(count);
    if (request_.maxChildren == 0 || count == 0) {
      return;
    }
    if (count <= maxWholeList) {
      askForAllChildren();
    } else {
      lookForShownChildren();
    }
  }

  /// Of a list that is scrolled down, the first children don't show: looks near its upper corner
  /// for one that does.
  void lookForShownChildren() {
    firstShown_ = INT_MAX;
    askForIndices(upperLeft, [this](int index) {
      firstShown_ = std::min(firstShown_.value_or(INT_MAX), index);
    });
  }

  /// Asks which children are at points of the element, and what their indices in it are.
  template <class Keep>
  void askForIndices(const Corner& corner, Keep keep) {
    const Atspi::Extents e = snapshot_.extents.value_or(Atspi::Extents{});
    const auto found = std::make_shared<std::set<std::string>>();
    const auto within = [](int begin, int size, int inset) {
      const std::int64_t at = std::int64_t{begin} + (inset < 0 ? size + inset : inset);
      return static_cast<int>(std::clamp<std::int64_t>(at, INT_MIN, INT_MAX));
    };
    for (const int right : corner.right) {
      for (const int down : corner.down) {
        if (std::abs(right) > e.width || std::abs(down) > e.height) {
          continue;
        }
        ask(Atspi::getAccessibleAtPoint(connection_, object_, within(e.x, e.width, right),
                                        within(e.y, e.height, down)),
            [this, keep, found](const std::optional<Object>& child) {
              if (child && child->path != object_.path && found->insert(child->path).second) {
                ask(Atspi::getIndexInParent(connection_, *child), [keep](std::optional<int> index) {
                  if (index) {
                    keep(*index);
                  }
                });
              }
            });
      }
    }
  }

  /// The rows or the columns that show.
  struct Lines {
    int count = 0;  ///< how many there are in all
    int first = INT_MAX;
    int last = -1;
    bool isLastKnown = false;  ///< otherwise there may be room below it

    void add(std::optional<int> line) {
      if (line && *line >= 0) {
        first = std::min(first, *line);
        last = std::max(last, *line);
      }
    }
    void limit(std::size_t mostLines) {
      const int most = static_cast<int>(std::min<std::size_t>(mostLines, maxWholeList));
      first = first < count ? first : 0;
      last = isLastKnown ? std::min(last, count - 1) : count - 1;
      last = first + std::min(last - first, most - 1);
    }
  };

  void askForShownCells() {
    ask(Atspi::getRowCount, [this](int count) { rows_.count = std::max(count, 0); });
    ask(Atspi::getColumnCount, [this](int count) { columns_.count = std::max(count, 0); });
    askForCells(upperLeft, [] {});
    askForCells(upperRight, [this] { columns_.isLastKnown = true; });
    askForCells(lowerLeft, [this] { rows_.isLastKnown = true; });
  }

  /// Asks for the rows and columns of the cells near a corner.
  template <class Note>
  void askForCells(const Corner& corner, Note note) {
    askForIndices(corner, [this, note](int index) {
      ask(Atspi::getRowAtIndex(connection_, object_, index), [this, note](std::optional<int> row) {
        rows_.add(row);
        note();
      });
      ask(Atspi::getColumnAtIndex(connection_, object_, index),
          [this](std::optional<int> column) { columns_.add(column); });
    });
  }

  void askForHeaders() {
    rows_.limit(request_.maxChildren);
    columns_.limit(request_.maxChildren);
    for (int column = columns_.first; column <= columns_.last; ++column) {
      ask(Atspi::getColumnHeader(connection_, object_, column),
          [this](std::optional<Object> header) { keepChild(std::move(header)); });
    }
  }

  void addRows() {
    snapshot_.kind.hasChildren = rows_.count > 0;
    snapshot_.childCount = snapshot_.children.size() + static_cast<std::size_t>(rows_.count);
    for (int row = rows_.first; row <= rows_.last; ++row) {
      snapshot_.children.push_back(
          {object_, TableRow{row, columns_.first, columns_.last, columns_.count}});
    }
  }

  void askForRow() {
    hasStates_ = true;  // they are those of its cells
    snapshot_.kind.role = Role::tableRow;
    snapshot_.kind.hasChildren = true;
    snapshot_.childCount = static_cast<std::size_t>(row_->columnCount);
    if (snapshot_.toolkit != Toolkit::gtk3) {  // which has none
      ask(Atspi::getRowHeader(connection_, object_, row_->index),
          [this](std::optional<Object> header) {
            keepChild(std::move(header));
            snapshot_.childCount += snapshot_.children.size();
          });
    }
    for (int column = row_->firstColumn; column <= row_->lastColumn; ++column) {
      ask(Atspi::getAccessibleAt(connection_, object_, row_->index, column),
          [this](std::optional<Object> cell) { keepChild(std::move(cell)); });
    }
  }

  /// Cells and headers may reach over several columns.
  void keepChild(std::optional<Object> child) {
    auto& children = snapshot_.children;
    if (child && (children.empty() || children.back().object.path != child->path)) {
      children.push_back({std::move(*child)});
    }
  }

  /// The first children, which may be headers, and as many again from the first on that shows.
  void askForShownChildren(int firstShown) {
    const int count = static_cast<int>(snapshot_.childCount);
    const int some = static_cast<int>(std::min<std::size_t>(request_.maxChildren, maxWholeList));
    const int second = firstShown >= some && firstShown < count ? firstShown : some;
    askForChildren(0, some);
    askForChildren(second, std::min(second + some, count));
  }

  void askForChildren(int begin, int end) {
    for (int i = begin; i < end; ++i) {
      ask(Atspi::getChildAtIndex(connection_, object_, i), [this](std::optional<Object> child) {
        if (child) {
          snapshot_.children.push_back({std::move(*child)});
        }
      });
    }
  }

  Connection& connection_;
  const Object object_;
  const bool isApplication_;
  const std::optional<TableRow> row_;  // if the element is one
  const SnapshotRequest request_;
  const Atspi::Item* item_ = nullptr;  // what is known of it already
  std::function<void(SnapshotReply)> done_;
  Snapshot snapshot_;
  Outcome outcome_ = Outcome::answered;
  Stage stage_ = Stage::end;
  int open_ = 0;  // questions that wait for their answers
  bool hasStates_ = false;
  // What of a table shows.
  Lines rows_;
  Lines columns_;
  /// The index of the first child that is known to show, while that is looked for.
  std::optional<int> firstShown_;
};

}  // namespace

void readSnapshot(Connection& connection, const Platform::AXElement::Handle& element,
                  const SnapshotRequest& request, std::function<void(SnapshotReply)> done) {
  std::make_shared<Reading>(connection, element, request, std::move(done))->start();
}

SnapshotReply readSnapshotNow(Connection& connection, const Platform::AXElement::Handle& element,
                              const SnapshotRequest& request, Deadline deadline) {
  SnapshotReply result;
  readSnapshot(connection, element, request,
               [&result](SnapshotReply reply) { result = std::move(reply); });
  connection.run(element.timeout, deadline);
  return result;
}

}  // namespace tervain::Linux
