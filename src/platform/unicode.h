#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Characters and their categories, the latter from the platform's own tables. Pure functions, safe on any
/// thread.
namespace msp {

/// Letters, marks and digits of any script: categories L*, M* and N*.
bool isAlphanumeric(char32_t character);

/// Punctuation: categories P*. Symbols such as "$", "+" and "~" are none.
bool isPunctuation(char32_t character);

/// TAB and category Zs.
bool isWhiteSpace(char32_t character);

/// U+000A to U+000D, U+0085, U+2028, U+2029.
bool isNewline(char32_t character);

/// The text with composed characters (normal form C), so that texts that read the same compare the same: an
/// account's name and that of its folder may spell one letter in two ways. Malformed text stays as it is.
std::string composedText(std::string_view text);

/// One character cut from the front of UTF-8 text.
struct DecodedCharacter {
  char32_t character = 0;
  /// Bytes it took. For a malformed sequence: the bytes to skip, at least 1.
  std::size_t length = 0;
  bool wellFormed = false;
};

/// The first character of `text`, which must not be empty. Strict: overlong forms, surrogates and values
/// beyond U+10FFFF are malformed. A malformed sequence ends where it can no longer become a character, so
/// that the next one is read from its own first byte.
DecodedCharacter firstCharacter(std::string_view text);

}  // namespace msp
