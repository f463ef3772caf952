#include "platform/unicode.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <set>
#include <string>
#include <string_view>

namespace msp {
namespace {

constexpr char32_t kLastCharacter = 0x10FFFF;

TEST(WhiteSpace, isTabAndTheSpaceSeparators) {
  const std::set<char32_t> expected = {0x09,   0x20,   0xA0,   0x1680, 0x2000, 0x2001,
                                       0x2002, 0x2003, 0x2004, 0x2005, 0x2006, 0x2007,
                                       0x2008, 0x2009, 0x200A, 0x202F, 0x205F, 0x3000};
  std::set<char32_t> found;
  for (char32_t character = 0; character <= kLastCharacter; ++character) {
    if (isWhiteSpace(character)) found.insert(character);
  }
  EXPECT_EQ(found, expected);
}

TEST(Newlines, areTheControlsFromLineFeedToReturnAndTheThreeOfUnicode) {
  const std::set<char32_t> expected = {0x0A, 0x0B, 0x0C, 0x0D, 0x85, 0x2028, 0x2029};
  std::set<char32_t> found;
  for (char32_t character = 0; character <= kLastCharacter; ++character) {
    if (isNewline(character)) found.insert(character);
  }
  EXPECT_EQ(found, expected);
}

TEST(Categories, tellLettersMarksAndDigitsFromPunctuationAndTheRest) {
  struct Case {
    std::string_view name;
    char32_t character;
    bool alphanumeric, punctuation;
  };
  constexpr Case kCases[] = {
      {"a capital letter", U'A', true, false},
      {"a small letter", U'z', true, false},
      {"a title-case letter", U'\u01C5', true, false},
      {"a modifier letter", U'\u02B0', true, false},
      {"a letter without case", U'\u3042', true, false},
      {"a letter beyond the first plane", U'\U00020000', true, false},
      {"a non-spacing mark", U'\u0308', true, false},
      {"a spacing mark", U'\u0903', true, false},
      {"an enclosing mark", U'\u20DD', true, false},
      {"a digit", U'0', true, false},
      {"a digit of another script", U'\u0667', true, false},
      {"a number letter", U'\u2163', true, false},
      {"a fraction", U'\u00BD', true, false},
      {"a connector", U'_', false, true},
      {"a hyphen", U'-', false, true},
      {"an opening bracket", U'(', false, true},
      {"a closing bracket", U']', false, true},
      {"an opening quotation mark", U'\u00AB', false, true},
      {"a closing quotation mark", U'\u2019', false, true},
      {"a full stop", U'.', false, true},
      {"an ideographic full stop", U'\u3002', false, true},
      {"a dollar sign", U'$', false, false},
      {"a plus sign", U'+', false, false},
      {"a tilde", U'~', false, false},
      {"an accent standing alone", U'`', false, false},
      {"an emoji", U'\U0001F600', false, false},
      {"a blank", U' ', false, false},
      {"a newline", U'\n', false, false},
      {"a control character", U'\0', false, false},
      {"a character for private use", U'\uE000', false, false},
      {"a noncharacter", 0xFFFE, false, false},
      {"a surrogate", 0xD800, false, false},
      {"a value beyond Unicode", 0x110000, false, false},
      {"the greatest value of the type", 0xFFFFFFFF, false, false},
  };
  for (const Case& row : kCases) {
    EXPECT_EQ(isAlphanumeric(row.character), row.alphanumeric) << row.name;
    EXPECT_EQ(isPunctuation(row.character), row.punctuation) << row.name;
  }
}

/// UTF-8 of a character, written down from the bit patterns of the encoding.
std::string encoded(char32_t character) {
  const auto byte = [](char32_t value) { return static_cast<char>(static_cast<unsigned char>(value)); };
  const auto tail = [&](unsigned shift) { return byte(0x80U | (character >> shift & 0x3FU)); };
  if (character < 0x80) return {byte(character)};
  if (character < 0x800) return {byte(0xC0U | character >> 6U), tail(0)};
  if (character < 0x10000) return {byte(0xE0U | character >> 12U), tail(6), tail(0)};
  return {byte(0xF0U | character >> 18U), tail(12), tail(6), tail(0)};
}

TEST(ComposedText, spellsALetterInOneWay) {
  EXPECT_EQ(composedText("jose\u0301"), "jos\u00e9");
  EXPECT_EQ(composedText("jos\u00e9"), "jos\u00e9");
  EXPECT_EQ(composedText("\u212B"), "\u00c5") << "the sign for a unit of length";
  EXPECT_EQ(composedText("\uFB01"), "\uFB01") << "what only looks alike stays";
  EXPECT_EQ(composedText("anna"), "anna");
  EXPECT_EQ(composedText(""), "");
  EXPECT_EQ(composedText("jose\xCC"), "jose\xCC") << "malformed";
}

TEST(FirstCharacter, readsEveryCharacterButTheSurrogates) {
  for (char32_t character = 0; character <= kLastCharacter; ++character) {
    const std::string bytes = encoded(character);
    const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
    const DecodedCharacter first = firstCharacter(bytes + "a");
    ASSERT_EQ(first.wellFormed, !surrogate) << static_cast<unsigned>(character);
    ASSERT_EQ(first.length, surrogate ? 1 : bytes.size()) << static_cast<unsigned>(character);
    ASSERT_EQ(first.character, surrogate ? 0 : character);
  }
}

TEST(FirstCharacter, skipsAMalformedSequenceUpToWhereItGoesWrong) {
  struct Case {
    std::string_view name, bytes;
    std::size_t length;
  };
  constexpr Case kCases[] = {
      {"a stray continuation byte", "\x80\x80", 1},
      {"an overlong form of two bytes", "\xC1\xBF", 1},
      {"an overlong form of three bytes", "\xE0\x9F\xBF", 1},
      {"an overlong form of four bytes", "\xF0\x8F\xBF\xBF", 1},
      {"a value beyond U+10FFFF", "\xF4\x90\x80\x80", 1},
      {"a lead byte that never occurs", "\xF5\x80\x80\x80", 1},
      {"the byte 0xFF", "\xFF", 1},
      {"two bytes cut off after one", "\xC3", 1},
      {"three bytes cut off after one", "\xE2", 1},
      {"three bytes cut off after two", "\xE2\x82", 2},
      {"four bytes cut off after three", "\xF0\x9F\x98", 3},
      {"three bytes of which the third is a letter", "\xE2\x82z", 2},
      {"four bytes of which the second is a letter", "\xF0z", 1},
      {"four bytes of which the fourth is a lead byte", "\xF0\x9F\x98\xC3", 3},
  };
  for (const Case& row : kCases) {
    const DecodedCharacter first = firstCharacter(row.bytes);
    EXPECT_FALSE(first.wellFormed) << row.name;
    EXPECT_EQ(first.length, row.length) << row.name;
  }
}

}  // namespace
}  // namespace msp
