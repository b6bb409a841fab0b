#include "Platform/Linux/Accessibility/Atspi.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace tervain::Linux::Atspi {

using AccessibilityBus::Answer;
using AccessibilityBus::Message;
using AccessibilityBus::Nothing;

namespace {

constexpr std::string_view nullPath = "/org/a11y/atspi/null";

/// What places count from, by AT-SPI's numbers.
enum class CoordType : std::uint32_t { screen = 0, window = 1, parent = 2 };
constexpr auto onScreen = static_cast<std::uint32_t>(CoordType::screen);

/// How long the names of objects can be. What is longer is nothing that an honest application says.
constexpr std::size_t maxName = 512;

/// How many objects of a list are kept: an answer has room for millions.
constexpr std::size_t maxObjects = 65'536;

/// How many items are kept: several times as many as a walk visits.
constexpr std::size_t maxItems = 4'096;

/// How many actions are looked at, and how long the name of one may be. Applications that mean to
/// be used stay far below.
constexpr int maxActions = 256;
constexpr std::size_t maxActionName = 128;

constexpr std::pair<Interface, const char*> interfaceNames[] = {
    {Interface::accessible, "org.a11y.atspi.Accessible"},
    {Interface::action, "org.a11y.atspi.Action"},
    {Interface::application, "org.a11y.atspi.Application"},
    {Interface::component, "org.a11y.atspi.Component"},
    {Interface::editableText, "org.a11y.atspi.EditableText"},
    {Interface::image, "org.a11y.atspi.Image"},
    {Interface::selection, "org.a11y.atspi.Selection"},
    {Interface::table, "org.a11y.atspi.Table"},
    {Interface::text, "org.a11y.atspi.Text"},
    {Interface::value, "org.a11y.atspi.Value"},
};

constexpr bool areInOrder() {
  std::size_t place = 0;
  return std::all_of(
      std::begin(interfaceNames), std::end(interfaceNames),
      [&place](const auto& row) { return static_cast<std::size_t>(row.first) == place++; });
}
static_assert(areInOrder(), "nameOf looks names up by their place");

constexpr const char* nameOf(Interface interface) {
  return interfaceNames[static_cast<std::size_t>(interface)].second;
}

// Calls.

template <class... Arguments>
Message method(const Connection& connection, const Object& object, Interface interface,
               const char* member, const char* types = "", Arguments... arguments) {
  Message call = connection.method(object, nameOf(interface), member);
  if constexpr (sizeof...(arguments) > 0) {
    sd_bus_message_append(call.get(), types, arguments...);
  }
  return call;
}

Message property(const Connection& connection, const Object& object, Interface interface,
                 const char* name) {
  return connection.property(object, nameOf(interface), name);
}

// Answers.

std::string readText(const Answer& answer) {
  return answer.text();
}

std::string readTextProperty(const Answer& answer) {
  return answer.variantText();
}

std::optional<double> readNumberProperty(const Answer& answer) {
  return answer.readVariant<double>('d');
}

int readCountProperty(const Answer& answer) {
  return answer.readVariant<std::int32_t>('i').value_or(0);
}

std::optional<int> readIndex(const Answer& answer) {
  return answer.read<std::int32_t>('i');
}

bool readBoolean(const Answer& answer) {
  return answer.read<int>('b').value_or(0) != 0;
}

Nothing readNothing(const Answer& /*answer*/) {
  return {};
}

Role readRole(const Answer& answer) {
  return static_cast<Role>(answer.read<std::uint32_t>('u').value_or(0));
}

States readStates(const Answer& answer) {
  const void* words = nullptr;
  std::size_t size = 0;
  if (sd_bus_message_read_array(answer.message.get(), 'u', &words, &size) <= 0) {
    return {};
  }
  const auto* word = static_cast<const std::uint32_t*>(words);
  const std::uint64_t low = size > 0 ? word[0] : 0;
  const std::uint64_t high = size > sizeof *word ? word[1] : 0;
  return States(high << 32U | low);
}

Interfaces readInterfaces(const Answer& answer) {
  Interfaces interfaces;
  sd_bus_message* const message = answer.message.get();
  const char* name = nullptr;
  sd_bus_message_enter_container(message, 'a', "s");
  while (sd_bus_message_read_basic(message, 's', &name) > 0) {
    const auto* const known =
        std::find_if(std::begin(interfaceNames), std::end(interfaceNames),
                     [name](const auto& row) { return std::string_view(row.second) == name; });
    if (known != std::end(interfaceNames)) {
      interfaces.insert(known->first);
    }
  }
  sd_bus_message_exit_container(message);
  return interfaces;
}

/// Reads one (so) structure. False at the end of the list.
bool readReference(const Answer& answer, Object& object) {
  const char* bus = nullptr;
  const char* path = nullptr;
  if (sd_bus_message_read(answer.message.get(), "(so)", &bus, &path) <= 0) {
    return false;
  }
  object = {bus, path};
  if (object.bus.size() > maxName || object.path.size() > maxName) {
    object = {{}, std::string(nullPath)};
  }
  return true;
}

std::optional<Object> readObject(const Answer& answer) {
  Object object;
  if (!readReference(answer, object) || object.path == nullPath) {
    return std::nullopt;
  }
  return object;
}

std::optional<Object> readObjectProperty(const Answer& answer) {
  return answer.enterVariant("(so)") ? readObject(answer) : std::nullopt;
}

Objects readObjects(const Answer& answer) {
  Objects objects;
  if (sd_bus_message_enter_container(answer.message.get(), 'a', "(so)") <= 0) {
    return objects;
  }
  for (Object object; readReference(answer, object);) {
    if (object.path != nullPath && objects.count++ < maxObjects) {
      objects.first.push_back(std::move(object));
    }
  }
  return objects;
}

/// Reads the rest of an item, but its path.
Item readItem(const Answer& answer) {
  Item item;
  sd_bus_message* const message = answer.message.get();
  sd_bus_message_skip(message, "(so)(so)i");  // the application, the parent, the index in it
  item.childCount = answer.read<std::int32_t>('i').value_or(0);
  item.interfaces = readInterfaces(answer);
  item.name = answer.text();
  item.role = readRole(answer);
  sd_bus_message_skip(message, "s");  // the description
  item.states = readStates(answer);
  return item;
}

Items readItems(const Answer& answer) {
  constexpr const char* types = "(so)(so)(so)iiassusau";
  Items items;
  sd_bus_message* const message = answer.message.get();
  sd_bus_message_enter_container(message, 'a', "((so)(so)(so)iiassusau)");
  while (items.size() < maxItems && sd_bus_message_enter_container(message, 'r', types) > 0) {
    Object object;
    readReference(answer, object);
    Item item = readItem(answer);
    if (item.name.size() <= maxName) {
      items.emplace(std::move(object.path), std::move(item));
    }
    sd_bus_message_exit_container(message);
  }
  return items;
}

int readActionCount(const Answer& answer) {
  return std::clamp(readCountProperty(answer), 0, maxActions);
}

std::string readActionName(const Answer& answer) {
  std::string name = answer.text();
  return name.size() <= maxActionName ? name : "";
}

std::vector<Action> readActions(const Answer& answer) {
  std::vector<Action> actions;
  sd_bus_message* const message = answer.message.get();
  sd_bus_message_enter_container(message, 'a', "(sss)");
  const char* name = nullptr;
  const char* description = nullptr;
  const char* key = nullptr;
  for (int i = 0;
       i < maxActions && sd_bus_message_read(message, "(sss)", &name, &description, &key) > 0;
       ++i) {
    actions.push_back({i, std::string_view(name).size() <= maxActionName ? name : ""});
  }
  return actions;
}

std::optional<Extents> readExtents(const Answer& answer) {
  Extents e;
  if (sd_bus_message_read(answer.message.get(), "(iiii)", &e.x, &e.y, &e.width, &e.height) <= 0) {
    return std::nullopt;
  }
  return e;
}

}  // namespace

Extents Extents::with(const Extents& other) const {
  const int left = std::min(x, other.x);
  const int top = std::min(y, other.y);
  const auto size = [](std::int64_t length) {
    return static_cast<int>(std::min<std::int64_t>(length, INT_MAX));
  };
  return {left, top, size(std::max(right(), other.right()) - left),
          size(std::max(bottom(), other.bottom()) - top)};
}

Object desktop() {
  return {"org.a11y.atspi.Registry", "/org/a11y/atspi/accessible/root"};
}

Call<std::string> getName(const Connection& connection, const Object& object) {
  return {property(connection, object, Interface::accessible, "Name"), readTextProperty};
}

Call<Role> getRole(const Connection& connection, const Object& object) {
  return {method(connection, object, Interface::accessible, "GetRole"), readRole};
}

Call<std::string> getRoleName(const Connection& connection, const Object& object) {
  return {method(connection, object, Interface::accessible, "GetRoleName"), readText};
}

Call<States> getState(const Connection& connection, const Object& object) {
  return {method(connection, object, Interface::accessible, "GetState"), readStates};
}

Call<Interfaces> getInterfaces(const Connection& connection, const Object& object) {
  return {method(connection, object, Interface::accessible, "GetInterfaces"), readInterfaces};
}

Call<std::optional<Object>> getParent(const Connection& connection, const Object& object) {
  return {property(connection, object, Interface::accessible, "Parent"), readObjectProperty};
}

Call<std::optional<int>> getIndexInParent(const Connection& connection, const Object& object) {
  return {method(connection, object, Interface::accessible, "GetIndexInParent"), readIndex};
}

Call<int> getChildCount(const Connection& connection, const Object& object) {
  return {property(connection, object, Interface::accessible, "ChildCount"), readCountProperty};
}

Call<std::optional<Object>> getChildAtIndex(const Connection& connection, const Object& object,
                                            int index) {
  return {method(connection, object, Interface::accessible, "GetChildAtIndex", "i", index),
          readObject};
}

Call<Objects> getChildren(const Connection& connection, const Object& object) {
  return {method(connection, object, Interface::accessible, "GetChildren"), readObjects};
}

Call<int> getActionCount(const Connection& connection, const Object& object) {
  return {property(connection, object, Interface::action, "NActions"), readActionCount};
}

Call<std::string> getActionName(const Connection& connection, const Object& object, int index) {
  return {method(connection, object, Interface::action, "GetName", "i", index), readActionName};
}

Call<std::vector<Action>> getActions(const Connection& connection, const Object& object) {
  return {method(connection, object, Interface::action, "GetActions"), readActions};
}

Call<bool> doAction(const Connection& connection, const Object& object, int index) {
  return {method(connection, object, Interface::action, "DoAction", "i", index), readBoolean};
}

Call<std::string> getToolkitName(const Connection& connection, const Object& object) {
  return {property(connection, object, Interface::application, "ToolkitName"), readTextProperty};
}

Call<std::string> getApplicationBusAddress(const Connection& connection, const Object& object) {
  return {method(connection, object, Interface::application, "GetApplicationBusAddress"), readText};
}

Call<Items> getItems(const Connection& connection, const Object& application) {
  const Object cache{application.bus, "/org/a11y/atspi/cache"};
  return {connection.method(cache, "org.a11y.atspi.Cache", "GetItems"), readItems};
}

Call<std::optional<Extents>> getExtents(const Connection& connection, const Object& object) {
  return {method(connection, object, Interface::component, "GetExtents", "u", onScreen),
          readExtents};
}

Call<std::optional<Object>> getAccessibleAtPoint(const Connection& connection, const Object& object,
                                                 int x, int y) {
  return {method(connection, object, Interface::component, "GetAccessibleAtPoint", "iiu", x, y,
                 onScreen),
          readObject};
}

Call<bool> grabFocus(const Connection& connection, const Object& object) {
  return {method(connection, object, Interface::component, "GrabFocus"), readBoolean};
}

Call<bool> setTextContents(const Connection& connection, const Object& object,
                           const std::string& contents) {
  return {
      method(connection, object, Interface::editableText, "SetTextContents", "s", contents.c_str()),
      readBoolean};
}

Call<std::optional<Object>> getSelectedChild(const Connection& connection, const Object& object,
                                             int index) {
  return {method(connection, object, Interface::selection, "GetSelectedChild", "i", index),
          readObject};
}

Call<bool> selectChild(const Connection& connection, const Object& object, int index) {
  return {method(connection, object, Interface::selection, "SelectChild", "i", index), readBoolean};
}

Call<int> getRowCount(const Connection& connection, const Object& object) {
  return {property(connection, object, Interface::table, "NRows"), readCountProperty};
}

Call<int> getColumnCount(const Connection& connection, const Object& object) {
  return {property(connection, object, Interface::table, "NColumns"), readCountProperty};
}

Call<std::optional<Object>> getAccessibleAt(const Connection& connection, const Object& object,
                                            int row, int column) {
  return {method(connection, object, Interface::table, "GetAccessibleAt", "ii", row, column),
          readObject};
}

Call<std::optional<int>> getRowAtIndex(const Connection& connection, const Object& object,
                                       int index) {
  return {method(connection, object, Interface::table, "GetRowAtIndex", "i", index), readIndex};
}

Call<std::optional<int>> getColumnAtIndex(const Connection& connection, const Object& object,
                                          int index) {
  return {method(connection, object, Interface::table, "GetColumnAtIndex", "i", index), readIndex};
}

Call<std::optional<Object>> getRowHeader(const Connection& connection, const Object& object,
                                         int row) {
  return {method(connection, object, Interface::table, "GetRowHeader", "i", row), readObject};
}

Call<std::optional<Object>> getColumnHeader(const Connection& connection, const Object& object,
                                            int column) {
  return {method(connection, object, Interface::table, "GetColumnHeader", "i", column), readObject};
}

Call<int> getCharacterCount(const Connection& connection, const Object& object) {
  return {property(connection, object, Interface::text, "CharacterCount"), readCountProperty};
}

Call<std::string> getText(const Connection& connection, const Object& object, int begin, int end) {
  return {method(connection, object, Interface::text, "GetText", "ii", begin, end), readText};
}

Call<std::optional<double>> getCurrentValue(const Connection& connection, const Object& object) {
  return {property(connection, object, Interface::value, "CurrentValue"), readNumberProperty};
}

Call<std::optional<double>> getMinimumValue(const Connection& connection, const Object& object) {
  return {property(connection, object, Interface::value, "MinimumValue"), readNumberProperty};
}

Call<std::optional<double>> getMaximumValue(const Connection& connection, const Object& object) {
  return {property(connection, object, Interface::value, "MaximumValue"), readNumberProperty};
}

Call<std::optional<double>> getMinimumIncrement(const Connection& connection,
                                                const Object& object) {
  return {property(connection, object, Interface::value, "MinimumIncrement"), readNumberProperty};
}

Call<Nothing> setCurrentValue(const Connection& connection, const Object& object, double value) {
  return {connection.assignment(object, nameOf(Interface::value), "CurrentValue", value),
          readNothing};
}

}  // namespace tervain::Linux::Atspi
