#pragma once

// As much of ApplicationServices as the macOS port uses.

#include <CoreGraphics/CoreGraphics.h>
#include <sys/types.h>

using AXUIElementRef = const struct FakeElement*;
using AXValueRef = const struct FakeValue*;
using AXCopyMultipleAttributeOptions = std::uint32_t;
enum AXError : std::int32_t {
  kAXErrorSuccess = Fake::success,
  kAXErrorInvalidUIElement = Fake::gone,
  kAXErrorCannotComplete = Fake::noAnswer,
  kAXErrorAttributeUnsupported = Fake::unsupported,
  kAXErrorAPIDisabled = -25211,
  kAXErrorNoValue = -25212,
};
enum AXValueType : std::uint32_t {
  kAXValueTypeCGPoint = 1,
  kAXValueTypeCGSize = 2,
  kAXValueTypeAXError = 5,
};

#define kAXRoleAttribute CFSTR("AXRole")
#define kAXSubroleAttribute CFSTR("AXSubrole")
#define kAXTitleAttribute CFSTR("AXTitle")
#define kAXValueAttribute CFSTR("AXValue")
#define kAXEnabledAttribute CFSTR("AXEnabled")
#define kAXFocusedAttribute CFSTR("AXFocused")
#define kAXPositionAttribute CFSTR("AXPosition")
#define kAXSizeAttribute CFSTR("AXSize")
#define kAXChildrenAttribute CFSTR("AXChildren")

inline Boolean AXIsProcessTrusted() {
  return Fake::system().grant == "accessibility";
}

FAKE_TYPE(AXUIElement, element)
inline AXUIElementRef AXUIElementCreateApplication(pid_t pid) {
  return Fake::create<AXUIElementRef>(Fake::element, Fake::line("application", pid));
}
inline AXUIElementRef AXUIElementCreateSystemWide() {
  return Fake::create<AXUIElementRef>(Fake::element, "everything");
}
inline AXError AXUIElementSetMessagingTimeout(AXUIElementRef element, float seconds) {
  auto& fake = Fake::object(element);
  (Fake::text(element) == "everything" ? Fake::system().timeout : fake.timeout) =
      Fake::Application::Seconds(seconds);
  return kAXErrorSuccess;
}
inline AXError AXUIElementGetPid(AXUIElementRef element, pid_t* pid) {
  const std::string& text = Fake::text(element);
  *pid = std::stoi(text.substr(text.find_last_of(' ') + 1));
  return kAXErrorSuccess;
}

/// Sends a message about an element; what it is to give, if it is answered.
template <class Give>
AXError fakeMessage(AXUIElementRef element, Give give) {
  const auto failed = Fake::system().send(Fake::object(element));
  return failed ? AXError{*failed} : AXError{give()};
}
inline Fake::Answer fakeChildren(AXUIElementRef element, std::size_t limit) {
  const std::size_t count = Fake::system().application.childCount(Fake::text(element));
  if (count == 0) {
    return {nullptr, Fake::illegalArgument};
  }
  std::vector<Fake::Reference> children;
  for (std::size_t i = 0; i < std::min(count, limit); ++i) {
    children.push_back(Fake::make(Fake::element, Fake::line(Fake::text(element), i)));
  }
  return {Fake::make(Fake::array, children)};
}
inline Fake::Answer fakeAnswer(AXUIElementRef element, const std::string& name) {
  if (Fake::system().application.childCount && name == "AXRole") {
    return {Fake::make(Fake::string, Fake::text(element))};
  }
  if (Fake::system().application.childCount && name == "AXChildren") {
    return fakeChildren(element, SIZE_MAX);
  }
  const auto& answers = Fake::system().answers;
  const auto found = answers.find(name);
  return found == answers.end() ? Fake::Answer{nullptr, Fake::unsupported} : found->second;
}
inline AXError AXUIElementCopyAttributeValue(AXUIElementRef element, CFStringRef name,
                                             CFTypeRef* value) {
  return fakeMessage(element,
                     [&] { return fakeAnswer(element, Fake::text(name)).give<AXError>(value); });
}
inline AXError AXUIElementCopyMultipleAttributeValues(AXUIElementRef element, CFArrayRef names,
                                                      AXCopyMultipleAttributeOptions options,
                                                      CFArrayRef* values) {
  EXPECT_EQ(options, 0U);
  return fakeMessage(element, [&] {
    if (!Fake::system().application.knowsLists) {
      return AXError{Fake::notImplemented};
    }
    std::vector<Fake::Reference> entries;
    for (const CFTypeRef name : Fake::items(names)) {
      auto [object, code] = fakeAnswer(element, Fake::text(name));
      if (code != 0 && object) {
        Fake::release(object);
      }
      entries.push_back(code != 0 ? Fake::make(Fake::value, code)
                        : object  ? object
                                  : Fake::make(Fake::null, ""));
    }
    *values = static_cast<CFArrayRef>(Fake::make(Fake::array, entries));
    return kAXErrorSuccess;
  });
}
inline AXError AXUIElementCopyAttributeValues(AXUIElementRef element, CFStringRef /*children*/,
                                              CFIndex first, CFIndex limit, CFArrayRef* values) {
  EXPECT_EQ(first, 0);
  const auto known = Fake::system().application.knowsLists;
  return fakeMessage(element, [&] {
    return known ? fakeChildren(element, static_cast<std::size_t>(limit)).give<AXError>(values)
                 : AXError{Fake::notImplemented};
  });
}
inline AXError AXUIElementGetAttributeValueCount(AXUIElementRef element, CFStringRef /*children*/,
                                                 CFIndex* count) {
  return fakeMessage(element, [&] {
    *count = static_cast<CFIndex>(Fake::system().application.childCount(Fake::text(element)));
    return kAXErrorSuccess;
  });
}
inline AXError AXUIElementCopyActionNames(AXUIElementRef element, CFArrayRef* names) {
  return fakeMessage(element,
                     [&] { return fakeAnswer(element, "action names").give<AXError>(names); });
}
inline AXError AXUIElementCopyElementAtPosition(AXUIElementRef application, float x, float y,
                                                AXUIElementRef* element) {
  Fake::system().request("at", x, y, "of", Fake::text(application));
  return Fake::system().answers["element at position"].give<AXError>(element);
}
inline AXError AXUIElementPerformAction(AXUIElementRef element, CFStringRef action) {
  return fakeMessage(element, [&] {
    return Fake::system().request(Fake::text(action), "of", Fake::text(element));
  });
}
inline AXError AXUIElementIsAttributeSettable(AXUIElementRef element, CFStringRef name,
                                              Boolean* settable) {
  return fakeMessage(element, [&] {
    *settable = Fake::system().isSettable;
    return Fake::system().request("set", Fake::text(name), "of", Fake::text(element));
  });
}
inline AXError AXUIElementSetAttributeValue(AXUIElementRef element, CFStringRef name,
                                            CFTypeRef value) {
  return fakeMessage(element, [&] {
    return Fake::system().request(Fake::text(name), "of", Fake::text(element), "=",
                                  Fake::text(value));
  });
}

FAKE_TYPE(AXValue, value)
inline AXValueType AXValueGetType(AXValueRef value) {
  const Fake::Content& held = Fake::object(value).content;
  return std::holds_alternative<std::int32_t>(held)  ? kAXValueTypeAXError
         : std::holds_alternative<Fake::Point>(held) ? kAXValueTypeCGPoint
                                                     : kAXValueTypeCGSize;
}
inline Boolean AXValueGetValue(AXValueRef value, AXValueType type, void* to) {
  return type == kAXValueTypeCGPoint ? Fake::copyContent<CGPoint>(value, to)
                                     : Fake::copyContent<CGSize>(value, to);
}

/// Of <time.h>, which has it on macOS only.
constexpr int CLOCK_UPTIME_RAW = 8;
inline std::uint64_t clock_gettime_nsec_np(int /*clock*/) {
  return static_cast<std::uint64_t>(Fake::system().uptime.count() * 1e9);
}
