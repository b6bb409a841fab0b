#include "Platform/Accessibility.h"

#include <ApplicationServices/ApplicationServices.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "Platform/macOS/CFRef.h"

namespace tervain::Platform {

template <>
CFTypeID cfTypeID<AXUIElementRef>() {
  return AXUIElementGetTypeID();
}
template <>
CFTypeID cfTypeID<AXValueRef>() {
  return AXValueGetTypeID();
}

struct AXElement::Handle {
  CFRef<AXUIElementRef> element;  // null only if the system failed to make an application's element
};

struct AXReader::State {
  std::size_t maxChildren = std::numeric_limits<std::size_t>::max();
};

namespace {

AXElement makeElement(CFRef<AXUIElementRef> element) {
  return AXElement(
      std::make_shared<const AXElement::Handle>(AXElement::Handle{std::move(element)}));
}

AXUIElementRef referenceTo(const AXElement& element) {
  return element.handle().element.get();
}

void setMessagingTimeout(AXUIElementRef element, std::chrono::milliseconds timeout) {
  AXUIElementSetMessagingTimeout(element, std::chrono::duration<float>(timeout).count());
}

CFStringRef nameOf(AXAttribute attribute) {
  switch (attribute) {
    case AXAttribute::role:
      return kAXRoleAttribute;
    case AXAttribute::subrole:
      return kAXSubroleAttribute;
    case AXAttribute::title:
      return kAXTitleAttribute;
    case AXAttribute::value:
      return kAXValueAttribute;
    case AXAttribute::enabled:
      return kAXEnabledAttribute;
    case AXAttribute::focused:
      return kAXFocusedAttribute;
    case AXAttribute::position:
      return kAXPositionAttribute;
    case AXAttribute::size:
      return kAXSizeAttribute;
    case AXAttribute::children:
      return kAXChildrenAttribute;
  }
  return nullptr;
}

/// A string of a text that is valid UTF-8.
CFRef<CFStringRef> makeString(const std::string& text) {
  return CFRef<CFStringRef>::adopt(
      CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                              static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8,
                              /*isExternalRepresentation=*/false));
}

std::string utf8(CFStringRef string) {
  constexpr UInt8 substitute = '?';  // for half a surrogate pair, which UTF-8 doesn't have
  const CFRange all{0, CFStringGetLength(string)};
  CFIndex size = 0;
  CFStringGetBytes(string, all, kCFStringEncodingUTF8, substitute,
                   /*isExternalRepresentation=*/false, nullptr, 0, &size);
  std::string text(static_cast<std::size_t>(size), '\0');
  CFStringGetBytes(string, all, kCFStringEncodingUTF8, substitute,
                   /*isExternalRepresentation=*/false, reinterpret_cast<UInt8*>(text.data()), size,
                   nullptr);
  return text;
}

AXNumber numberOf(CFNumberRef number) {
  std::int64_t integer = 0;
  if (!CFNumberIsFloatType(number) && CFNumberGetValue(number, kCFNumberSInt64Type, &integer)) {
    return integer;
  }
  float single = 0;
  if (CFNumberGetByteSize(number) == sizeof single &&
      CFNumberGetValue(number, kCFNumberFloat32Type, &single)) {
    return single;
  }
  double real = 0;  // also the nearest to an integer of more than 64 bits
  CFNumberGetValue(number, kCFNumberFloat64Type, &real);
  return real;
}

AXURL urlOf(CFURLRef url) {
  const auto absolute = CFRef<CFURLRef>::adopt(CFURLCopyAbsoluteURL(url));
  return absolute ? AXURL{utf8(CFURLGetString(absolute.get()))} : AXURL{};
}

AXValue geometryOf(AXValueRef value) {
  CGPoint point{};
  if (AXValueGetValue(value, kAXValueTypeCGPoint, &point)) {
    return Point{point.x, point.y};
  }
  CGSize size{};
  if (AXValueGetValue(value, kAXValueTypeCGSize, &size)) {
    return Size{size.width, size.height};
  }
  return AXOther{};
}

/// The items of an array. Nothing when one of them is of another type. The array owns them.
template <class Ref>
std::optional<std::vector<Ref>> itemsOf(CFArrayRef array) {
  std::vector<Ref> items;
  const CFIndex count = CFArrayGetCount(array);
  items.reserve(static_cast<std::size_t>(count));
  for (CFIndex index = 0; index < count; ++index) {
    const Ref item = cfCast<Ref>(CFArrayGetValueAtIndex(array, index));
    if (!item) {
      return std::nullopt;
    }
    items.push_back(item);
  }
  return items;
}

/// The elements of an array, as many of them as are wanted.
AXValue elementsOf(CFArrayRef array, std::size_t wanted) {
  const auto items = itemsOf<AXUIElementRef>(array);
  if (!items) {
    return AXOther{};
  }
  AXElements elements{{}, items->size()};
  for (std::size_t index = 0; index < std::min(wanted, items->size()); ++index) {
    elements.first.push_back(makeElement(CFRef<AXUIElementRef>::retain((*items)[index])));
  }
  return elements;
}

AXValue valueOf(CFTypeRef object, std::size_t wantedElements) {
  if (const auto string = cfCast<CFStringRef>(object)) {
    return utf8(string);
  }
  if (const auto boolean = cfCast<CFBooleanRef>(object)) {
    return AXNumber(std::int64_t{CFBooleanGetValue(boolean)});
  }
  if (const auto number = cfCast<CFNumberRef>(object)) {
    return numberOf(number);
  }
  if (const auto url = cfCast<CFURLRef>(object)) {
    return urlOf(url);
  }
  if (const auto value = cfCast<AXValueRef>(object)) {
    return geometryOf(value);
  }
  if (const auto array = cfCast<CFArrayRef>(object)) {
    return elementsOf(array, wantedElements);
  }
  return AXOther{};
}

}  // namespace

AXReader::AXReader() : state_(std::make_unique<State>()) {}
AXReader::AXReader(const AXElement& /*root*/, const AXWalk& walk)
    : state_(std::make_unique<State>(State{walk.maxChildren})) {}
AXReader::~AXReader() = default;

std::optional<AXValue> AXReader::attribute(const AXElement& element, AXAttribute attribute) {
  CFRef<CFTypeRef> value;
  const auto result =
      AXUIElementCopyAttributeValue(referenceTo(element), nameOf(attribute), value.out());
  if (result != kAXErrorSuccess || !value) {
    return std::nullopt;
  }
  return valueOf(value.get(), state_->maxChildren);
}

std::vector<std::string> AXReader::actionNames(const AXElement& element) {
  CFRef<CFArrayRef> array;
  const auto result = AXUIElementCopyActionNames(referenceTo(element), array.out());
  if (result != kAXErrorSuccess || !array) {
    return {};
  }
  std::vector<std::string> names;
  if (const auto items = itemsOf<CFStringRef>(array.get())) {
    std::transform(items->begin(), items->end(), std::back_inserter(names), utf8);
  }
  return names;
}

AXElement applicationElement(pid_t pid, std::chrono::milliseconds messagingTimeout) {
  AXElement application =
      makeElement(CFRef<AXUIElementRef>::adopt(AXUIElementCreateApplication(pid)));
  setMessagingTimeout(referenceTo(application), messagingTimeout);
  return application;
}

std::variant<AXElement, AXError> elementAtPosition(float x, float y,
                                                   std::chrono::milliseconds messagingTimeout) {
  const auto everything = CFRef<AXUIElementRef>::adopt(AXUIElementCreateSystemWide());
  setMessagingTimeout(everything.get(), messagingTimeout);
  CFRef<AXUIElementRef> found;
  const auto result = AXUIElementCopyElementAtPosition(everything.get(), x, y, found.out());
  if (result != kAXErrorSuccess || !found) {
    return static_cast<AXError>(result);
  }
  return makeElement(std::move(found));
}

AXError performAction(const AXElement& element, const std::string& action) {
  const auto name = makeString(action);
  if (!name) {
    return AXError::failure;
  }
  return static_cast<AXError>(AXUIElementPerformAction(referenceTo(element), name.get()));
}

bool isValueSettable(const AXElement& element) {
  Boolean settable = false;
  AXUIElementIsAttributeSettable(referenceTo(element), kAXValueAttribute, &settable);
  return settable != 0;
}

AXError setValue(const AXElement& element, const std::string& value) {
  const auto string = makeString(value);
  if (!string) {
    return AXError::failure;
  }
  return static_cast<AXError>(
      AXUIElementSetAttributeValue(referenceTo(element), kAXValueAttribute, string.get()));
}

AXError setFocused(const AXElement& element) {
  return static_cast<AXError>(
      AXUIElementSetAttributeValue(referenceTo(element), kAXFocusedAttribute, kCFBooleanTrue));
}

}  // namespace tervain::Platform
