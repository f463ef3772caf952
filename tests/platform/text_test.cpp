#include "platform/text.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "platform/unicode.h"

using namespace std::string_literals;

namespace msp {
namespace {

using Pieces = std::vector<std::string>;

Pieces owned(const std::vector<std::string_view>& pieces) { return {pieces.begin(), pieces.end()}; }

TEST(Lines, areCutAtEverySingleNewlineCharacterAndNowhereElse) {
  struct Case {
    std::string name, text;
    Pieces expected;
  };
  const Case cases[] = {
      {"no text is one empty line", "", {""}},
      {"a text without newline is one line", "one", {"one"}},
      {"a final newline leaves an empty last line", "a\nb\n", {"a", "b", ""}},
      {"a newline alone lies between two empty lines", "\n", {"", ""}},
      {"empty lines are kept", "a\n\nb", {"a", "", "b"}},
      {"CR LF are two newlines", "a\r\nb", {"a", "", "b"}},
      {"LF, VT, FF and CR all cut", "a\nb\vc\fd\re", {"a", "b", "c", "d", "e"}},
      {"next line U+0085 cuts", "a\u0085b", {"a", "b"}},
      {"line separator U+2028 cuts", "a\u2028b", {"a", "b"}},
      {"paragraph separator U+2029 cuts", "a\u2029b\u2029", {"a", "b", ""}},
      {"blanks, tabs and NUL do not cut", "a b\tc\0d"s, {"a b\tc\0d"s}},
      {"neighbours of the newline characters do not cut",
       "a\u0084b\u0086c\u2027d\u202Ae\bf\u000E",
       {"a\u0084b\u0086c\u2027d\u202Ae\bf\u000E"}},
      {"characters that share bytes with them do not cut",
       "\u0405\u00E2\u00C2\u2128\u00A8",
       {"\u0405\u00E2\u00C2\u2128\u00A8"}},
      {"a stray byte 0x85 does not cut", "a\x85"s + "b", {"a\x85"s + "b"}},
      {"a cut-off newline character at the end does not cut", "a\xC2", {"a\xC2"}},
      {"a longer cut-off newline character does not cut either", "a\xE2\x80", {"a\xE2\x80"}},
      {"a newline after malformed bytes cuts", "a\xE2\x80\nb\xFF\u0085"s + "c", {"a\xE2\x80", "b\xFF", "c"}},
  };
  for (const Case& row : cases) EXPECT_EQ(owned(lines(row.text)), row.expected) << row.name;
}

TEST(Words, areTheNonEmptyPiecesBetweenBlanksAndTabs) {
  struct Case {
    std::string name, text;
    Pieces expected;
  };
  const Case cases[] = {
      {"no text has no words", "", {}},
      {"blanks alone have none", " \t ", {}},
      {"runs of blanks and tabs count once", " a \tb\t\tc ", {"a", "b", "c"}},
      {"one word without blanks is itself", "word", {"word"}},
      {"newlines do not part words", "a\nb c", {"a\nb", "c"}},
      {"wide blanks do not part words", "a\u00A0b\u3000c d", {"a\u00A0b\u3000c", "d"}},
      {"malformed bytes are kept", "\xFF\xFE \x80", {"\xFF\xFE", "\x80"}},
  };
  for (const Case& row : cases) EXPECT_EQ(owned(words(row.text)), row.expected) << row.name;
}

TEST(Split, keepsTheEmptyPieces) {
  struct Case {
    std::string name, text;
    char separator;
    Pieces expected;
  };
  const Case cases[] = {
      {"no text is one empty piece", "", ' ', {""}},
      {"two separators enclose an empty piece", "a  b", ' ', {"a", "", "b"}},
      {"separators at the ends leave empty pieces", ":a:", ':', {"", "a", ""}},
      {"without the separator the text is the piece", "a b", ':', {"a b"}},
      {"a tab is no blank", "a\tb c", ' ', {"a\tb", "c"}},
  };
  for (const Case& row : cases) EXPECT_EQ(owned(split(row.text, row.separator)), row.expected) << row.name;
}

TEST(SplitNonEmpty, leavesTheEmptyPiecesOut) {
  struct Case {
    std::string name, text;
    Pieces expected;
  };
  const Case cases[] = {
      {"no text has no pieces", "", {}},
      {"separators alone have none", "::", {}},
      {"separators at the ends and in a row enclose nothing", ":a::b:", {"a", "b"}},
      {"blanks are a piece", "a: :b", {"a", " ", "b"}},
  };
  for (const Case& row : cases) EXPECT_EQ(owned(splitNonEmpty(row.text, ':')), row.expected) << row.name;
}

TEST(SplitAtWhiteSpace, cutsAtEverySingleWhiteSpaceCharacterAndAtNoNewline) {
  struct Case {
    std::string name, text;
    Pieces expected;
  };
  const Case cases[] = {
      {"no text is one empty piece", "", {""}},
      {"two blanks enclose an empty piece", "ls  -l", {"ls", "", "-l"}},
      {"blanks at the ends leave empty pieces", " ls ", {"", "ls", ""}},
      {"a tab cuts too", "a\tb", {"a", "b"}},
      {"so does every blank of Unicode",
       "a\u00A0b\u1680c\u2000d\u200Ae\u202Ff\u205Fg\u3000h",
       {"a", "b", "c", "d", "e", "f", "g", "h"}},
      {"a zero-width blank is none", "a\u200Bb", {"a\u200Bb"}},
      {"no newline character cuts", "a\nb\r\v\f\u0085\u2028\u2029c", {"a\nb\r\v\f\u0085\u2028\u2029c"}},
      {"malformed bytes belong to their piece", "a\xE3\x80 b\xFF", {"a\xE3\x80", "b\xFF"}},
  };
  for (const Case& row : cases) EXPECT_EQ(owned(splitAtWhiteSpace(row.text)), row.expected) << row.name;
}

TEST(SplitAtBlanks, cutsAtEverySingleBlankAndTab) {
  struct Case {
    std::string name, text;
    Pieces expected;
  };
  const Case cases[] = {
      {"no text is one empty piece", "", {""}},
      {"a text without blanks is one piece", "a", {"a"}},
      {"each blank and each tab cuts", "a b\tc", {"a", "b", "c"}},
      {"empty pieces are kept", " a \tb\t", {"", "a", "", "b", ""}},
      {"other white space and newlines cut nothing", "a\u00A0b\nc", {"a\u00A0b\nc"}},
  };
  for (const Case& row : cases) EXPECT_EQ(owned(splitAtBlanks(row.text)), row.expected) << row.name;
}

TEST(Tokens, areTheNonEmptyPiecesBetweenWhiteSpaceAndNewlines) {
  struct Case {
    std::string name, text;
    Pieces expected;
  };
  const Case cases[] = {
      {"no text has none", "", {}},
      {"white space and newlines alone have none", " \t\n\u2028\u3000", {}},
      {"both kinds cut, in any mixture", "\n a \t\nb\u00A0c\u0085d\r\n", {"a", "b", "c", "d"}},
      {"malformed bytes belong to their token", "\xFF a", {"\xFF", "a"}},
  };
  for (const Case& row : cases) EXPECT_EQ(owned(tokens(row.text)), row.expected) << row.name;
}

TEST(TrimBlanks, takesBlanksAndTabsOnly) {
  struct Case {
    std::string_view name, text, expected;
  };
  constexpr Case kCases[] = {
      {"both ends are trimmed, the middle stays", " \ta b\t ", "a b"},
      {"nothing is left of blanks", " \t ", ""},
      {"no text stays none", "", ""},
      {"a newline stops it", " \n a", "\n a"},
      {"a wide blank stops it", " \u00A0a\u3000 ", "\u00A0a\u3000"},
  };
  for (const Case& row : kCases) EXPECT_EQ(trimBlanks(row.text), row.expected) << row.name;
}

TEST(TrimWhiteSpaceAndNewlines, takesBothKindsInAnyMixture) {
  struct Case {
    std::string_view name, text, expected;
  };
  constexpr Case kCases[] = {
      {"blanks, tabs and newlines go", " \t\r\n a b \n\t", "a b"},
      {"no-break, em and ideographic spaces go", "\u00A0\u2003\u3000a\u3000\u2003\u00A0", "a"},
      {"the Unicode newlines go", "\u0085\u2028\u2029a\u2029\u2028\u0085", "a"},
      {"nothing is left of white space", " \u2003\n\u0085", ""},
      {"no text stays none", "", ""},
      {"zero-width space stays", "\u200Ba\u200B", "\u200Ba\u200B"},
      {"the middle stays", "a \u00A0\n b", "a \u00A0\n b"},
      {"malformed bytes stop it", " \xFF a \x85 ", "\xFF a \x85"},
      {"the end of a cut-off blank stays", "a\xA0", "a\xA0"},
      {"a letter whose last byte is that of a blank stays", "a\u0120", "a\u0120"},
  };
  for (const Case& row : kCases) EXPECT_EQ(trimWhiteSpaceAndNewlines(row.text), row.expected) << row.name;
}

TEST(TrimPunctuation, takesPunctuationOfAnyScriptButNoSymbols) {
  struct Case {
    std::string_view name, text, expected;
  };
  constexpr Case kCases[] = {
      {"a trailing full stop goes", "Pages free:   12345.", "Pages free:   12345"},
      {"brackets, quotes and dashes go", "(\"-a-\")", "a"},
      {"guillemets and ideographic stops go", "\u00ABa\u3002\u00BB", "a"},
      {"symbols stop it", "$+<=>^`|~a~", "$+<=>^`|~a~"},
      {"a blank stops it", ". a .", " a "},
      {"punctuation in the middle stays", "a.b", "a.b"},
      {"nothing is left of punctuation", "...", ""},
      {"no text stays none", "", ""},
      {"malformed bytes stop it", ".\xE3\x80.", "\xE3\x80"},
  };
  for (const Case& row : kCases) EXPECT_EQ(trimPunctuation(row.text), row.expected) << row.name;
}

TEST(ParseInteger, acceptsAnOptionalSignAndDigitsOnly) {
  struct Case {
    std::string name, text;
    std::optional<std::int64_t> expected;
  };
  const Case cases[] = {
      {"digits are a number", "501", 501},
      {"zero is one", "0", 0},
      {"a plus sign may lead", "+7", 7},
      {"a minus sign may lead", "-7", -7},
      {"minus zero is zero", "-0", 0},
      {"leading zeros do not matter", "007", 7},
      {"a sign and leading zeros do not either", "-007", -7},
      {"more zeros than the range has digits do not either", std::string(40, '0') + "9", 9},
      {"the greatest value is read", "9223372036854775807", std::numeric_limits<std::int64_t>::max()},
      {"the smallest value is read", "-9223372036854775808", std::numeric_limits<std::int64_t>::min()},
      {"one more than the greatest is none", "9223372036854775808", std::nullopt},
      {"one less than the smallest is none", "-9223372036854775809", std::nullopt},
      {"no text is none", "", std::nullopt},
      {"a minus sign alone is none", "-", std::nullopt},
      {"a plus sign alone is none", "+", std::nullopt},
      {"two signs are none", "+-7", std::nullopt},
      {"two plus signs are none", "++7", std::nullopt},
      {"two minus signs are none", "--7", std::nullopt},
      {"a leading blank is refused", " 7", std::nullopt},
      {"a trailing blank is refused", "7 ", std::nullopt},
      {"a blank after the sign is refused", "- 7", std::nullopt},
      {"a trailing newline is refused", "7\n", std::nullopt},
      {"a trailing NUL is refused", "7\0"s, std::nullopt},
      {"a decimal point is refused", "7.0", std::nullopt},
      {"an exponent is refused", "1e3", std::nullopt},
      {"hexadecimal is refused", "0x10", std::nullopt},
      {"digits of other scripts are refused", "\u0667", std::nullopt},
      {"words are refused", "many", std::nullopt},
  };
  for (const Case& row : cases) EXPECT_EQ(parseInteger(row.text), row.expected) << row.name;
}

TEST(ParseDouble, acceptsAWholeFiniteNumber) {
  struct Case {
    std::string name, text;
    std::optional<double> expected;
  };
  const Case cases[] = {
      {"an integer is a number", "12", 12},
      {"a fraction is one", "48.25", 48.25},
      {"signs may lead", "-1.5", -1.5},
      {"a plus sign may lead too", "+1.5", 1.5},
      {"the digits before the point may be missing", ".5", .5},
      {"the digits after the point may be missing", "5.", 5},
      {"an exponent is read", "1e3", 1000},
      {"what is too small becomes zero", "1e-999", 0},
      {"a long number is read whole", "0." + std::string(60, '0') + "1e61", 1},
      {"no text is none", "", std::nullopt},
      {"a sign alone is none", "-", std::nullopt},
      {"a point alone is none", ".", std::nullopt},
      {"a decimal comma is refused", "1,5", std::nullopt},
      {"a leading blank is refused", " 1", std::nullopt},
      {"a leading tab is refused", "\t1", std::nullopt},
      {"a leading newline is refused", "\n1", std::nullopt},
      {"a leading vertical tab is refused", "\v1", std::nullopt},
      {"a leading no-break space is refused", "\u00A0"s + "1", std::nullopt},
      {"a trailing blank is refused", "1 ", std::nullopt},
      {"a unit is refused", "48.25C", std::nullopt},
      {"two points are refused", "1.2.3", std::nullopt},
      {"a NUL inside is refused", "1\0"s + "2", std::nullopt},
      {"a trailing NUL is refused", "1\0"s, std::nullopt},
      {"an overflow is refused", "1e999", std::nullopt},
      {"a negative overflow is refused", "-1e999", std::nullopt},
      {"infinity is refused", "inf", std::nullopt},
      {"signed infinity is refused", "-infinity", std::nullopt},
      {"not-a-number is refused", "nan", std::nullopt},
      {"signed not-a-number is refused", "+nan", std::nullopt},
  };
  for (const Case& row : cases) EXPECT_EQ(parseDouble(row.text), row.expected) << row.name;
}

TEST(DecodeText, acceptsWellFormedTextAndRepairTextMendsTheRest) {
  struct Case {
    std::string name, bytes, repaired;
  };
  const std::string mark = "\uFFFD";
  const Case wellFormed[] = {
      {"no text", "", ""},
      {"ASCII with control characters", "a\0b\x7F\n"s, "a\0b\x7F\n"s},
      {"ASCII longer than a machine word", "the quick brown fox", "the quick brown fox"},
      {"characters of two, three and four bytes", "\u00E9\u20AC\U0001F600", "\u00E9\u20AC\U0001F600"},
      {"a character after a machine word of ASCII", "12345678\u00E9", "12345678\u00E9"},
      {"the last characters of each length", "\u007F\u07FF\uFFFF\U0010FFFF", "\u007F\u07FF\uFFFF\U0010FFFF"},
      {"the neighbours of the surrogates", "\uD7FF\uE000", "\uD7FF\uE000"},
  };
  for (const Case& row : wellFormed) {
    EXPECT_EQ(decodeText(row.bytes), row.bytes) << row.name;
    EXPECT_EQ(repairText(row.bytes), row.repaired) << row.name;
  }
  const Case malformed[] = {
      {"a byte that never occurs", "a\xFF"s + "b", "a" + mark + "b"},
      {"a stray continuation byte", "a\x80"s + "b", "a" + mark + "b"},
      {"a character cut off by the end", "a\xE2\x82", "a" + mark},
      {"a character cut off by another", "\xF0\x9F\x98"s + "b", mark + "b"},
      {"a lead byte before a lead byte", "\xC3\xC3\xA9", mark + "\u00E9"},
      {"an overlong slash of two bytes", "\xC0\xAF", mark + mark},
      {"an overlong slash of three bytes", "\xE0\x80\xAF", mark + mark + mark},
      {"an overlong slash of four bytes", "\xF0\x80\x80\xAF", mark + mark + mark + mark},
      {"a surrogate", "\xED\xA0\x80", mark + mark + mark},
      {"a value beyond U+10FFFF", "\xF4\x90\x80\x80", mark + mark + mark + mark},
      {"a lead byte of five", "\xF8\x88\x80\x80\x80", mark + mark + mark + mark + mark},
      {"a bad byte after a machine word of ASCII", "12345678\xFF"s + "12345678",
       "12345678" + mark + "12345678"},
      {"Latin-1 text", "Jos\xE9 P\xE9rez", "Jos" + mark + " P" + mark + "rez"},
  };
  for (const Case& row : malformed) {
    EXPECT_EQ(decodeText(row.bytes), std::nullopt) << row.name;
    EXPECT_EQ(repairText(row.bytes), row.repaired) << row.name;
  }
}

TEST(HostLabel, keepsAlphanumericCharactersAndHyphens) {
  struct Case {
    std::string_view name, value, expected;
  };
  constexpr Case kCases[] = {
      {"an apostrophe is dropped, blanks become hyphens", "Anna's MacBook Pro", "Annas-MacBook-Pro"},
      {"letters beyond ASCII stay", "B\u00FCro-Mac (2)", "B\u00FCro-Mac-2"},
      {"a typographic apostrophe is dropped", "Ana\u2019s Mac", "Anas-Mac"},
      {"every blank counts", "a  b ", "a--b-"},
      {"tabs, newlines and wide blanks are dropped", "a\tb\nc\u00A0d\u3000e", "abcde"},
      {"underscores and dots are dropped", "my_mac.local", "mymaclocal"},
      {"emoji are dropped", "Mac \U0001F600 1", "Mac--1"},
      {"combining marks stay", "Bu\u0308ro", "Bu\u0308ro"},
      {"digits of other scripts stay", "Mac \u0667\u096F", "Mac-\u0667\u096F"},
      {"number letters and fractions stay", "\u2163\u00BD", "\u2163\u00BD"},
      {"letters of other scripts stay", "\u30DE\u30C3\u30AF \u041C\u0430\u043A",
       "\u30DE\u30C3\u30AF-\u041C\u0430\u043A"},
      {"letters beyond the first plane stay", "\U00020000x", "\U00020000x"},
      {"other dashes are dropped", "a\u2013b\u2014c", "abc"},
      {"malformed bytes are dropped", "Mac\xFF\xC3 2", "Mac-2"},
      {"nothing may be left", "\U0001F600!", ""},
      {"no name stays none", "", ""},
  };
  for (const Case& row : kCases) EXPECT_EQ(hostLabel(row.value), row.expected) << row.name;
}

/// Bytes of which many begin or continue a character that the functions look for.
std::string randomBytes(std::mt19937& random) {
  constexpr std::string_view kTelling = "\n\r \t.-\x80\x85\xA0\xA8\xA9\xC2\xE2\xE3\xED\xF0\xF4\xFF";
  std::string bytes(random() % 64, '\0');
  for (char& byte : bytes) {
    byte = random() % 2 == 0 ? kTelling[random() % kTelling.size()] : static_cast<char>(random() % 256);
  }
  return bytes;
}

TEST(Text, bytesOfAnyKindAreHandled) {
  std::mt19937 random(20240531);
  for (int round = 0; round < 20'000; ++round) {
    const std::string bytes = randomBytes(random);

    const std::string repaired = repairText(bytes);
    ASSERT_EQ(decodeText(repaired), repaired);
    const auto decoded = decodeText(bytes);
    ASSERT_EQ(decoded.has_value(), repaired == bytes);

    // The lines and one newline character between each two of them are the whole text.
    const auto pieces = lines(bytes);
    const char* at = bytes.data();
    for (std::size_t i = 0; i < pieces.size(); ++i) {
      if (i > 0) {
        const std::string_view rest(at, static_cast<std::size_t>(bytes.data() + bytes.size() - at));
        const DecodedCharacter newline = firstCharacter(rest);
        ASSERT_TRUE(newline.wellFormed && isNewline(newline.character));
        at += newline.length;
      }
      ASSERT_EQ(pieces[i].data(), at);
      at += pieces[i].size();
    }
    ASSERT_EQ(at, bytes.data() + bytes.size());

    const auto trimmed = trimWhiteSpaceAndNewlines(bytes);
    ASSERT_EQ(trimWhiteSpaceAndNewlines(trimmed), trimmed);
    const auto unpunctuated = trimPunctuation(bytes);
    ASSERT_EQ(trimPunctuation(unpunctuated), unpunctuated);
    ASSERT_TRUE(decodeText(hostLabel(bytes)).has_value());
    for (const auto& word : words(bytes)) ASSERT_EQ(trimBlanks(word), word);
    if (const auto number = parseInteger(bytes)) {
      ASSERT_EQ(parseDouble(bytes), static_cast<double>(*number));
    }
  }
}

}  // namespace
}  // namespace msp
