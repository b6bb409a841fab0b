#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

namespace tervain::Platform {

/// Owns one reference to a CoreFoundation object, or none. How it came by that is always said:
/// functions with Create or Copy in their names give a reference away, those with Get don't.
template <class Ref>
class CFRef {
 public:
  CFRef() = default;
  CFRef(CFRef&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  CFRef& operator=(CFRef&& other) noexcept {
    CFRef moved(std::move(other));
    std::swap(object_, moved.object_);
    return *this;
  }
  CFRef(const CFRef&) = delete;
  CFRef& operator=(const CFRef&) = delete;
  ~CFRef() {
    if (object_) {
      CFRelease(object_);
    }
  }

  /// Takes over what a Create or Copy function returned, which may be null.
  [[nodiscard]] static CFRef adopt(Ref object) { return CFRef(object); }

  /// Shares what a Get function returned, which may be null.
  [[nodiscard]] static CFRef retain(Ref object) {
    if (object) {
      CFRetain(object);
    }
    return CFRef(object);
  }

  /// Where a Copy function that returns a code shall put its object, whatever the code. What was
  /// owned before is released.
  [[nodiscard]] Ref* out() {
    *this = CFRef();
    return &object_;
  }

  /// The object, or null. Only for as long as this owns it, so not to be asked of a temporary.
  [[nodiscard]] Ref get() const& { return object_; }
  Ref get() const&& = delete;

  explicit operator bool() const { return object_ != nullptr; }

 private:
  explicit CFRef(Ref object) : object_(object) {}

  Ref object_ = nullptr;
};

/// The type that objects behind a reference of type Ref have at run time.
template <class Ref>
CFTypeID cfTypeID() = delete;

template <>
inline CFTypeID cfTypeID<CFArrayRef>() {
  return CFArrayGetTypeID();
}
template <>
inline CFTypeID cfTypeID<CFBooleanRef>() {
  return CFBooleanGetTypeID();
}
template <>
inline CFTypeID cfTypeID<CFNullRef>() {
  return CFNullGetTypeID();
}
template <>
inline CFTypeID cfTypeID<CFNumberRef>() {
  return CFNumberGetTypeID();
}
template <>
inline CFTypeID cfTypeID<CFStringRef>() {
  return CFStringGetTypeID();
}
template <>
inline CFTypeID cfTypeID<CFURLRef>() {
  return CFURLGetTypeID();
}

/// The object by its true type. Null when it is null or of another type. Nothing is retained.
template <class Ref>
Ref cfCast(CFTypeRef object) {
  return object && CFGetTypeID(object) == cfTypeID<Ref>() ? static_cast<Ref>(object) : nullptr;
}

}  // namespace tervain::Platform
