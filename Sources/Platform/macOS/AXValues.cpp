#include "Platform/macOS/AXValues.h"

#include <algorithm>
#include <iterator>
#include <limits>

#include "Platform/macOS/AXHandle.h"
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

namespace {

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
AXValue elementsOf(CFArrayRef array, std::size_t wanted, std::chrono::milliseconds timeout) {
  const auto items = itemsOf<AXUIElementRef>(array);
  if (!items) {
    return AXOther{};
  }
  AXElements elements{{}, items->size()};
  for (std::size_t index = 0; index < std::min(wanted, items->size()); ++index) {
    elements.first.push_back(makeElement(CFRef<AXUIElementRef>::retain((*items)[index]), timeout));
  }
  return elements;
}

}  // namespace

AXValue valueOf(CFTypeRef object, std::size_t wanted, std::chrono::milliseconds timeout) {
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
    return elementsOf(array, wanted, timeout);
  }
  return AXOther{};
}

std::optional<AXValue> valueOfEntry(CFTypeRef entry, std::chrono::milliseconds timeout) {
  const auto value = cfCast<AXValueRef>(entry);
  if (cfCast<CFNullRef>(entry) || (value && AXValueGetType(value) == kAXValueTypeAXError)) {
    return std::nullopt;
  }
  return valueOf(entry, std::numeric_limits<std::size_t>::max(), timeout);
}

std::vector<std::string> stringsOf(CFArrayRef array) {
  std::vector<std::string> strings;
  if (const auto items = itemsOf<CFStringRef>(array)) {
    std::transform(items->begin(), items->end(), std::back_inserter(strings), utf8);
  }
  return strings;
}

}  // namespace tervain::Platform
