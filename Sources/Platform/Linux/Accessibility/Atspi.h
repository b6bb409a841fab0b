#pragma once

#include <climits>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "Platform/Linux/Accessibility/Bus.h"

/// AT-SPI, the protocol by which applications show their accessibility trees, by its own names: its
/// roles, states and interfaces, and a function for each of its calls.
///
/// What a call's answer reads as copes with any answer: where it is not what AT-SPI asks for, it
/// reads as nothing, 0 or an empty value.
namespace tervain::Linux::Atspi {

using AccessibilityBus::Call;
using AccessibilityBus::Connection;
using AccessibilityBus::Object;

/// What an element is, by AT-SPI's numbers. Newer toolkits may answer others.
enum class Role : std::uint32_t {
  invalid = 0,
  acceleratorLabel = 1,
  alert = 2,
  animation = 3,
  arrow = 4,
  calendar = 5,
  canvas = 6,
  checkBox = 7,
  checkMenuItem = 8,
  colorChooser = 9,
  columnHeader = 10,
  comboBox = 11,
  dateEditor = 12,
  desktopIcon = 13,
  desktopFrame = 14,
  dial = 15,
  dialog = 16,
  directoryPane = 17,
  drawingArea = 18,
  fileChooser = 19,
  filler = 20,
  focusTraversable = 21,
  fontChooser = 22,
  frame = 23,
  glassPane = 24,
  htmlContainer = 25,
  icon = 26,
  image = 27,
  internalFrame = 28,
  label = 29,
  layeredPane = 30,
  list = 31,
  listItem = 32,
  menu = 33,
  menuBar = 34,
  menuItem = 35,
  optionPane = 36,
  pageTab = 37,
  pageTabList = 38,
  panel = 39,
  passwordText = 40,
  popupMenu = 41,
  progressBar = 42,
  pushButton = 43,
  radioButton = 44,
  radioMenuItem = 45,
  rootPane = 46,
  rowHeader = 47,
  scrollBar = 48,
  scrollPane = 49,
  separator = 50,
  slider = 51,
  spinButton = 52,
  splitPane = 53,
  statusBar = 54,
  table = 55,
  tableCell = 56,
  tableColumnHeader = 57,
  tableRowHeader = 58,
  tearoffMenuItem = 59,
  terminal = 60,
  text = 61,
  toggleButton = 62,
  toolBar = 63,
  toolTip = 64,
  tree = 65,
  treeTable = 66,
  unknown = 67,
  viewport = 68,
  window = 69,
  extended = 70,
  header = 71,
  footer = 72,
  paragraph = 73,
  ruler = 74,
  application = 75,
  autocomplete = 76,
  editbar = 77,
  embedded = 78,
  entry = 79,
  chart = 80,
  caption = 81,
  documentFrame = 82,
  heading = 83,
  page = 84,
  section = 85,
  redundantObject = 86,
  form = 87,
  link = 88,
  inputMethodWindow = 89,
  tableRow = 90,
  treeItem = 91,
  documentSpreadsheet = 92,
  documentPresentation = 93,
  documentText = 94,
  documentWeb = 95,
  documentEmail = 96,
  comment = 97,
  listBox = 98,
  grouping = 99,
  imageMap = 100,
  notification = 101,
  infoBar = 102,
  levelBar = 103,
  titleBar = 104,
  blockQuote = 105,
  audio = 106,
  video = 107,
  definition = 108,
  article = 109,
  landmark = 110,
  log = 111,
  marquee = 112,
  math = 113,
  rating = 114,
  timer = 115,
  staticText = 116,  ///< "static"
  mathFraction = 117,
  mathRoot = 118,
  subscript = 119,
  superscript = 120,
  descriptionList = 121,
  descriptionTerm = 122,
  descriptionValue = 123,
  footnote = 124,
  contentDeletion = 125,
  contentInsertion = 126,
  mark = 127,
  suggestion = 128,
  pushButtonMenu = 129,
};

/// What holds of an element, by its bit in the 64 bits that an element answers.
enum class State {
  invalid = 0,
  active = 1,
  armed = 2,
  busy = 3,
  checked = 4,
  collapsed = 5,
  defunct = 6,
  editable = 7,
  enabled = 8,
  expandable = 9,
  expanded = 10,
  focusable = 11,
  focused = 12,
  hasTooltip = 13,
  horizontal = 14,
  iconified = 15,
  modal = 16,
  multiLine = 17,
  multiselectable = 18,
  opaque = 19,
  pressed = 20,
  resizable = 21,
  selectable = 22,
  selected = 23,
  sensitive = 24,
  showing = 25,
  singleLine = 26,
  stale = 27,
  transient = 28,
  vertical = 29,
  visible = 30,
  managesDescendants = 31,
  indeterminate = 32,
  required = 33,
  truncated = 34,
  animated = 35,
  invalidEntry = 36,
  supportsAutocompletion = 37,
  selectableText = 38,
  isDefault = 39,
  visited = 40,
  checkable = 41,
  hasPopup = 42,
  readOnly = 43,
};

/// The groups of calls, of which an element lists those that it answers. Only what the port makes
/// use of.
enum class Interface {
  accessible,
  action,
  application,
  component,
  editableText,
  image,
  selection,
  table,
  text,
  value,
};

/// Some of the values of an enumeration, each of which is the number of a bit below 64.
template <class Enum>
class SetOf {
 public:
  constexpr SetOf() = default;
  constexpr SetOf(std::initializer_list<Enum> values) {
    for (const Enum value : values) {
      insert(value);
    }
  }
  explicit constexpr SetOf(std::uint64_t bits) : bits_(bits) {}

  constexpr void insert(Enum value) { bits_ |= bit(value); }
  [[nodiscard]] constexpr bool has(Enum value) const { return (bits_ & bit(value)) != 0; }

 private:
  static constexpr std::uint64_t bit(Enum value) {
    return std::uint64_t{1} << static_cast<unsigned>(value);
  }

  std::uint64_t bits_ = 0;
};
using States = SetOf<State>;
using Interfaces = SetOf<Interface>;

/// A rectangle as a toolkit reports it, in its own units.
struct Extents {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;

  /// Whether this is what toolkits say of something that is not on the screen.
  [[nodiscard]] bool areNowhere() const { return width <= 0 || height <= 0 || x == INT_MIN; }

  // Beyond the numbers of `x` and `y` if an application says so.
  [[nodiscard]] std::int64_t right() const { return std::int64_t{x} + width; }
  [[nodiscard]] std::int64_t bottom() const { return std::int64_t{y} + height; }

  [[nodiscard]] bool contains(int pointX, int pointY) const {
    return pointX >= x && pointY >= y && pointX < right() && pointY < bottom();
  }

  /// The smallest rectangle that holds both.
  [[nodiscard]] Extents with(const Extents& other) const;

  /// Whether the two have a pixel in common.
  [[nodiscard]] bool meets(const Extents& other) const {
    return x < other.right() && other.x < right() && y < other.bottom() && other.y < bottom();
  }
};

/// Something that an element can do.
struct Action {
  int index = 0;  ///< by which `doAction` does it
  std::string name;
};

/// Objects that an answer lists, but for the null object.
struct Objects {
  std::vector<Object> first;  ///< so many that an application could not show more
  std::size_t count = 0;      ///< how many there are in all
};

/// What an application tells of one of all its objects.
struct Item {
  int childCount = 0;  ///< negative where it does not tell
  Interfaces interfaces;
  std::string name;
  Role role = Role::invalid;
  States states;
};
using Items = std::unordered_map<std::string, Item>;  ///< by the paths of the objects

/// The service on the session bus that knows where the accessibility bus is, and whether anybody
/// looks.
namespace Launcher {
inline constexpr const char* name = "org.a11y.Bus";
inline constexpr const char* path = "/org/a11y/bus";
inline constexpr const char* interface = "org.a11y.Bus";
inline constexpr const char* getAddress = "GetAddress";
inline constexpr const char* statusInterface = "org.a11y.Status";
inline constexpr const char* isEnabled = "IsEnabled";
}  // namespace Launcher

/// The desktop, whose children are the applications' root objects.
Object desktop();

// Each of these makes a call, to be asked on the connection that it is made for. AT-SPI's null
// object reads as nothing. Places count from the screen's corner where the toolkit knows it (GTK 4
// counts from the window's), in the toolkit's own units.

// Accessible: every object is one.
Call<std::string> getName(const Connection& connection, const Object& object);
Call<Role> getRole(const Connection& connection, const Object& object);
Call<std::string> getRoleName(const Connection& connection, const Object& object);
Call<States> getState(const Connection& connection, const Object& object);
Call<Interfaces> getInterfaces(const Connection& connection, const Object& object);
Call<std::optional<Object>> getParent(const Connection& connection, const Object& object);
Call<std::optional<int>> getIndexInParent(const Connection& connection, const Object& object);
/// A number that the application may have made up, and a negative one where it does not know.
Call<int> getChildCount(const Connection& connection, const Object& object);
Call<std::optional<Object>> getChildAtIndex(const Connection& connection, const Object& object,
                                            int index);
Call<Objects> getChildren(const Connection& connection, const Object& object);

// Action.
/// How many there are, or would be in an honest application.
Call<int> getActionCount(const Connection& connection, const Object& object);
/// The same for every language. Empty where it is longer than the name of an action is.
Call<std::string> getActionName(const Connection& connection, const Object& object, int index);
/// The first actions by names that an application may translate, leave out, or give something else
/// for. Empty where one is longer than that.
Call<std::vector<Action>> getActions(const Connection& connection, const Object& object);
/// Whether it was done.
Call<bool> doAction(const Connection& connection, const Object& object, int index);

// Application: the root object of each.
Call<std::string> getToolkitName(const Connection& connection, const Object& object);
/// Where it can be asked past the bus.
Call<std::string> getApplicationBusAddress(const Connection& connection, const Object& object);

// Cache: all objects of an application at a time.
/// As they are now. Those that nobody has asked for yet may be missing; what no honest application
/// would say is.
Call<Items> getItems(const Connection& connection, const Object& application);

// Component: what has a place.
Call<std::optional<Extents>> getExtents(const Connection& connection, const Object& object);
/// What lies below the object at a point.
Call<std::optional<Object>> getAccessibleAtPoint(const Connection& connection, const Object& object,
                                                 int x, int y);
/// Whether it has the focus now.
Call<bool> grabFocus(const Connection& connection, const Object& object);

// EditableText.
/// Whether it was done. The contents hold no NUL.
Call<bool> setTextContents(const Connection& connection, const Object& object,
                           const std::string& contents);

// Selection.
Call<std::optional<Object>> getSelectedChild(const Connection& connection, const Object& object,
                                             int index);
/// Whether it was done. The index is that in the parent, which is the object.
Call<bool> selectChild(const Connection& connection, const Object& object, int index);

// Table. Rows and columns count from 0; `index` is that of a cell in its parent, which is the
// table.
/// Numbers that the application may have made up, as that of children.
Call<int> getRowCount(const Connection& connection, const Object& object);
Call<int> getColumnCount(const Connection& connection, const Object& object);
Call<std::optional<Object>> getAccessibleAt(const Connection& connection, const Object& object,
                                            int row, int column);
Call<std::optional<int>> getRowAtIndex(const Connection& connection, const Object& object,
                                       int index);
Call<std::optional<int>> getColumnAtIndex(const Connection& connection, const Object& object,
                                          int index);
Call<std::optional<Object>> getRowHeader(const Connection& connection, const Object& object,
                                         int row);
Call<std::optional<Object>> getColumnHeader(const Connection& connection, const Object& object,
                                            int column);

// Text. Offsets and counts are in characters.
Call<int> getCharacterCount(const Connection& connection, const Object& object);
Call<std::string> getText(const Connection& connection, const Object& object, int begin, int end);

// Value: what has a number.
Call<std::optional<double>> getCurrentValue(const Connection& connection, const Object& object);
Call<std::optional<double>> getMinimumValue(const Connection& connection, const Object& object);
Call<std::optional<double>> getMaximumValue(const Connection& connection, const Object& object);
Call<std::optional<double>> getMinimumIncrement(const Connection& connection, const Object& object);
Call<AccessibilityBus::Nothing> setCurrentValue(const Connection& connection, const Object& object,
                                                double value);

}  // namespace tervain::Linux::Atspi
