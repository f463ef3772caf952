#include <cstddef>

#include "platform/core_foundation.h"
#include "platform/text.h"

namespace msp {

std::string textOf(CFStringRef text) {
  // What UTF-8 cannot express, half a surrogate pair, becomes this instead of ending the text.
  constexpr UInt8 kReplacement = '?';
  const CFRange whole = {0, CFStringGetLength(text)};
  CFIndex size = 0;
  CFStringGetBytes(text, whole, kCFStringEncodingUTF8, kReplacement, false, nullptr, 0, &size);
  std::string bytes(static_cast<std::size_t>(size), '\0');
  CFStringGetBytes(text, whole, kCFStringEncodingUTF8, kReplacement, false,
                   reinterpret_cast<UInt8*>(bytes.data()), size, &size);
  bytes.resize(static_cast<std::size_t>(size));
  return repairText(bytes);
}

}  // namespace msp
