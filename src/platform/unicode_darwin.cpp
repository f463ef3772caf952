#include "platform/core_foundation.h"
#include "platform/unicode.h"

namespace msp {

bool isAlphanumeric(char32_t character) {
  return CFCharacterSetIsLongCharacterMember(CFCharacterSetGetPredefined(kCFCharacterSetAlphaNumeric),
                                             character) != 0;
}

bool isPunctuation(char32_t character) {
  return CFCharacterSetIsLongCharacterMember(CFCharacterSetGetPredefined(kCFCharacterSetPunctuation),
                                             character) != 0;
}

std::string composedText(std::string_view text) {
  const CFOwned<CFStringRef> given(
      CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                              static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false));
  if (given == nullptr) return std::string(text);
  const CFOwned<CFMutableStringRef> composed(CFStringCreateMutableCopy(kCFAllocatorDefault, 0, given.get()));
  if (composed == nullptr) return std::string(text);
  CFStringNormalize(composed.get(), kCFStringNormalizationFormC);
  return textOf(composed.get());
}

}  // namespace msp
