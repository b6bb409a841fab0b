#pragma once

// As much of ApplicationServices as the macOS port uses.

#include <CoreGraphics/CoreGraphics.h>
#include <sys/types.h>

using AXUIElementRef = const struct FakeElement*;
using AXValueRef = const struct FakeValue*;
enum AXError : std::int32_t { kAXErrorSuccess = 0 };
enum AXValueType : std::uint32_t { kAXValueTypeCGPoint = 1, kAXValueTypeCGSize = 2 };

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
  return AXError{Fake::system().request(Fake::text(element), "times out after", seconds)};
}
inline AXError AXUIElementCopyAttributeValue(AXUIElementRef element, CFStringRef name,
                                             CFTypeRef* value) {
  Fake::object(element);
  return Fake::system().answers.at(Fake::text(name)).give<AXError>(value);
}
inline AXError AXUIElementCopyActionNames(AXUIElementRef element, CFArrayRef* names) {
  Fake::object(element);
  return Fake::system().answers["action names"].give<AXError>(names);
}
inline AXError AXUIElementCopyElementAtPosition(AXUIElementRef application, float x, float y,
                                                AXUIElementRef* element) {
  Fake::system().request("at", x, y, "of", Fake::text(application));
  return Fake::system().answers["element at position"].give<AXError>(element);
}
inline AXError AXUIElementPerformAction(AXUIElementRef element, CFStringRef action) {
  return AXError{Fake::system().request(Fake::text(action), "of", Fake::text(element))};
}
inline AXError AXUIElementIsAttributeSettable(AXUIElementRef element, CFStringRef name,
                                              Boolean* settable) {
  *settable = Fake::system().isSettable;
  return AXError{Fake::system().request("set", Fake::text(name), "of", Fake::text(element))};
}
inline AXError AXUIElementSetAttributeValue(AXUIElementRef element, CFStringRef name,
                                            CFTypeRef value) {
  return AXError{
      Fake::system().request(Fake::text(name), "of", Fake::text(element), "=", Fake::text(value))};
}

FAKE_TYPE(AXValue, value)
inline Boolean AXValueGetValue(AXValueRef value, AXValueType type, void* to) {
  return type == kAXValueTypeCGPoint ? Fake::copyContent<CGPoint>(value, to)
                                     : Fake::copyContent<CGSize>(value, to);
}
