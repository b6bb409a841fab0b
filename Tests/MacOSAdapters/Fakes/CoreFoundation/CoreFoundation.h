#pragma once

// As much of CoreFoundation as the macOS port uses.

#include "MacOSAdapters/FakeSystem.h"
#include "VMAgentCore/Unicode.h"

namespace Fake = tervain::Fake;

using Boolean = unsigned char;
using UInt8 = std::uint8_t;
using UniChar = std::uint16_t;
using CFIndex = long;
using CFTypeID = unsigned long;
using CFTypeRef = const void*;
using CFAllocatorRef = const struct FakeAllocator*;
using CFArrayRef = const struct FakeArray*;
using CFBooleanRef = const struct FakeBoolean*;
using CFNullRef = const struct FakeNull*;
using CFNumberRef = const struct FakeNumber*;
using CFStringRef = const struct FakeString*;
using CFURLRef = const struct FakeURL*;
enum CFStringEncoding : std::uint32_t { kCFStringEncodingUTF8 = 0x08000100 };
enum CFNumberType { kCFNumberSInt64Type = 4, kCFNumberFloat32Type, kCFNumberFloat64Type };
struct CFRange {
  CFIndex location;
  CFIndex length;
};

#define CFSTR(text) static_cast<CFStringRef>(Fake::constant(Fake::string, text))
#define kCFBooleanTrue static_cast<CFBooleanRef>(Fake::constant(Fake::boolean, "true"))
constexpr CFAllocatorRef kCFAllocatorDefault = nullptr;

#define FAKE_TYPE(Name, type)         \
  inline CFTypeID Name##GetTypeID() { \
    return Fake::type;                \
  }
FAKE_TYPE(CFArray, array)
FAKE_TYPE(CFBoolean, boolean)
FAKE_TYPE(CFNull, null)
FAKE_TYPE(CFNumber, number)
FAKE_TYPE(CFString, string)
FAKE_TYPE(CFURL, url)

inline void CFRetain(CFTypeRef object) {
  ++Fake::object(object).references;
}
inline void CFRelease(CFTypeRef object) {
  Fake::release(object);
}
inline CFTypeID CFGetTypeID(CFTypeRef object) {
  return Fake::object(object).type;
}

constexpr struct CFArrayCallBacks {
} kCFTypeArrayCallBacks;
inline CFArrayRef CFArrayCreate(CFAllocatorRef /*allocator*/, const void** values, CFIndex count,
                                const CFArrayCallBacks* /*callBacks*/) {
  const std::vector<Fake::Reference> items(values, values + count);
  const auto array = Fake::create<CFArrayRef>(Fake::array, items);
  std::for_each(items.begin(), array ? items.end() : items.begin(), CFRetain);
  return array;
}
inline CFIndex CFArrayGetCount(CFArrayRef array) {
  return static_cast<CFIndex>(Fake::items(array).size());
}
inline CFTypeRef CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index) {
  return Fake::items(array).at(static_cast<std::size_t>(index));
}

inline Boolean CFBooleanGetValue(CFBooleanRef boolean) {
  return std::get<bool>(Fake::object(boolean).content);
}

inline Boolean CFNumberIsFloatType(CFNumberRef number) {
  return !std::holds_alternative<std::int64_t>(Fake::object(number).content);
}
inline CFIndex CFNumberGetByteSize(CFNumberRef number) {
  return std::holds_alternative<float>(Fake::object(number).content) ? 4 : 8;
}
inline Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* to) {
  return type == kCFNumberSInt64Type    ? Fake::copyContent<std::int64_t>(number, to)
         : type == kCFNumberFloat32Type ? Fake::copyContent<float>(number, to)
                                        : Fake::copyContent<double>(number, to);
}

inline CFStringRef CFStringCreateWithBytes(CFAllocatorRef /*allocator*/, const UInt8* bytes,
                                           CFIndex count, CFStringEncoding /*encoding*/,
                                           Boolean /*isExternalRepresentation*/) {
  return Fake::create<CFStringRef>(Fake::string, std::string(bytes, bytes + count));
}
inline std::string withSubstitute(CFStringRef string, char substitute) {
  std::string text = Fake::text(string);
  std::replace(text.begin(), text.end(), '\xFF', substitute);
  return text;
}
inline CFIndex CFStringGetLength(CFStringRef string) {
  return static_cast<CFIndex>(tervain::utf16(withSubstitute(string, '?')).size());
}
inline CFIndex CFStringGetBytes(CFStringRef string, CFRange all, CFStringEncoding /*encoding*/,
                                UInt8 lossByte, Boolean /*isExternalRepresentation*/, UInt8* buffer,
                                CFIndex room, CFIndex* usedLength) {
  const std::string text = withSubstitute(string, static_cast<char>(lossByte));
  if (buffer) {
    std::copy_n(text.begin(), std::min(text.size(), static_cast<std::size_t>(room)), buffer);
  }
  if (usedLength) {
    *usedLength = static_cast<CFIndex>(text.size());
  }
  return all.length;
}

inline CFURLRef CFURLCopyAbsoluteURL(CFURLRef url) {
  std::string absolute;
  for (const CFTypeRef part : Fake::items(url)) {
    absolute.insert(0, Fake::text(part));
  }
  const auto string = Fake::create<CFTypeRef>(Fake::string, absolute);
  return string ? Fake::create<CFURLRef>(Fake::url, std::vector{string}) : nullptr;
}
inline CFStringRef CFURLGetString(CFURLRef url) {
  return static_cast<CFStringRef>(Fake::items(url).front());
}
