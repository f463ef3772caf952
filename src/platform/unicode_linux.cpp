#include <utf8proc.h>

#include "platform/unicode.h"

namespace msp {
namespace {

utf8proc_category_t categoryOf(char32_t character) {
  return utf8proc_category(static_cast<utf8proc_int32_t>(character));
}

}  // namespace

bool isAlphanumeric(char32_t character) {
  switch (categoryOf(character)) {
    case UTF8PROC_CATEGORY_LU:
    case UTF8PROC_CATEGORY_LL:
    case UTF8PROC_CATEGORY_LT:
    case UTF8PROC_CATEGORY_LM:
    case UTF8PROC_CATEGORY_LO:
    case UTF8PROC_CATEGORY_MN:
    case UTF8PROC_CATEGORY_MC:
    case UTF8PROC_CATEGORY_ME:
    case UTF8PROC_CATEGORY_ND:
    case UTF8PROC_CATEGORY_NL:
    case UTF8PROC_CATEGORY_NO:
      return true;
    default:
      return false;
  }
}

bool isPunctuation(char32_t character) {
  switch (categoryOf(character)) {
    case UTF8PROC_CATEGORY_PC:
    case UTF8PROC_CATEGORY_PD:
    case UTF8PROC_CATEGORY_PS:
    case UTF8PROC_CATEGORY_PE:
    case UTF8PROC_CATEGORY_PI:
    case UTF8PROC_CATEGORY_PF:
    case UTF8PROC_CATEGORY_PO:
      return true;
    default:
      return false;
  }
}

}  // namespace msp
