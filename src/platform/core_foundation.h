#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <memory>
#include <string>
#include <type_traits>

/// For the macOS sources only: CoreFoundation objects in C++ hands.
namespace msp {

struct CFReleaser {
  void operator()(CFTypeRef object) const { CFRelease(object); }
};

/// What a Create or Copy function handed out, released with its owner; nullptr when it failed. Results of
/// Get functions are never owned.
template <typename T>
using CFOwned = std::unique_ptr<std::remove_pointer_t<T>, CFReleaser>;

/// Whether there is an object and it is of that type. To be asked before every cast.
inline bool isOfType(CFTypeRef object, CFTypeID type) {
  return object != nullptr && CFGetTypeID(object) == type;
}

/// The text as well-formed UTF-8; the text must not be nullptr.
std::string textOf(CFStringRef text);

}  // namespace msp
