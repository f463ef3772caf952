#include <CoreFoundation/CoreFoundation.h>

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

}  // namespace msp
