#include <utf8proc.h>

#include <cstdlib>
#include <memory>

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

std::string composedText(std::string_view text) {
  utf8proc_uint8_t* composed = nullptr;
  const utf8proc_ssize_t length = utf8proc_map(
      reinterpret_cast<const utf8proc_uint8_t*>(text.data()), static_cast<utf8proc_ssize_t>(text.size()),
      &composed, static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE));
  if (length < 0) return std::string(text);
  const std::unique_ptr<utf8proc_uint8_t, void (*)(void*)> owner(composed, std::free);
  return {reinterpret_cast<const char*>(composed), static_cast<std::size_t>(length)};
}

}  // namespace msp
