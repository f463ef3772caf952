#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// How tool output is cut up and read. Each rule has one name; the rules differ on purpose.
/// Text is UTF-8. Everything here is a pure function, safe on any thread; views point into the argument.
namespace msp {

/// Pieces between newline characters (U+000A to U+000D, U+0085, U+2028, U+2029), each single one a cut;
/// empty pieces are kept: "a\n\nb\n" gives "a", "", "b", "".
std::vector<std::string_view> lines(std::string_view text);

/// Pieces between blanks and tabs, without the empty ones: " a \tb" gives "a", "b".
std::vector<std::string_view> words(std::string_view text);

/// Pieces between single separators, empty ones kept: "a  b" at ' ' gives "a", "", "b".
std::vector<std::string_view> split(std::string_view text, char separator);

/// Pieces between separators, without the empty ones: ":a::b" at ':' gives "a", "b".
std::vector<std::string_view> splitNonEmpty(std::string_view text, char separator);

/// Pieces between single blanks and tabs, empty ones kept: "a \tb" gives "a", "", "b".
std::vector<std::string_view> splitAtBlanks(std::string_view text);

/// Pieces between white space characters (TAB and category Zs), each single one a cut; empty pieces are kept.
/// Newline characters cut nothing: "ls  -l\n" gives "ls", "", "-l\n".
std::vector<std::string_view> splitAtWhiteSpace(std::string_view text);

/// Pieces between white space and newline characters, without the empty ones: " a\t\nb " gives "a", "b".
std::vector<std::string_view> tokens(std::string_view text);

/// Without the blanks and tabs at both ends.
std::string_view trimBlanks(std::string_view text);

/// Without the white space (TAB and category Zs) and the newline characters at both ends, in any mixture.
std::string_view trimWhiteSpaceAndNewlines(std::string_view text);

/// Without the punctuation (category P*) at both ends.
std::string_view trimPunctuation(std::string_view text);

/// A whole decimal number: an optional single "+" or "-", then ASCII digits and nothing else, within 64
/// bits. "+7" and "007" are 7; " 7", "7.0", "" and "-" are nothing.
std::optional<std::int64_t> parseInteger(std::string_view text);

/// A whole floating-point number as strtod(3) reads it, but without leading white space or trailing
/// characters, and finite: "1.5" and "1e3" are numbers; " 1", "1,5", "inf" and "" are nothing.
std::optional<double> parseDouble(std::string_view text);

/// The bytes as text when they are well-formed UTF-8 (ASCII included); nothing otherwise.
std::optional<std::string> decodeText(std::string_view bytes);

/// The bytes as well-formed UTF-8: every malformed sequence becomes one U+FFFD.
std::string repairText(std::string_view bytes);

/// `value` under the platform's rule for host labels: every blank becomes "-", then only alphanumeric
/// characters (categories L*, M*, N*) and "-" stay. "Anna's MacBook Pro" gives "Annas-MacBook-Pro".
std::string hostLabel(std::string_view value);

}  // namespace msp
