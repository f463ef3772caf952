#include "platform/text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include "platform/unicode.h"

namespace msp {
namespace {

constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

bool isDigit(char byte) { return byte >= '0' && byte <= '9'; }
bool isBlank(char byte) { return byte == ' ' || byte == '\t'; }

/// Length of the newline character at `text[at]`; 0 when there is none. Looks at bytes only: none of the
/// first bytes can stand inside another character.
std::size_t newlineLength(std::string_view text, std::size_t at) {
  const auto byte = static_cast<unsigned char>(text[at]);
  if (byte >= 0x0A && byte <= 0x0D) return 1;
  if (byte != 0xC2 && byte != 0xE2) return 0;
  const std::string_view rest = text.substr(at);
  if (rest.starts_with("\xC2\x85")) return 2;
  if (rest.starts_with("\xE2\x80\xA8") || rest.starts_with("\xE2\x80\xA9")) return 3;
  return 0;
}

/// The last character of `text`, which must not be empty; not well-formed when the text ends malformed.
DecodedCharacter lastCharacter(std::string_view text) {
  constexpr std::size_t kLongestCharacter = 4;
  std::size_t length = 1;
  while (length < kLongestCharacter && length < text.size() &&
         (static_cast<unsigned char>(text[text.size() - length]) & 0xC0U) == 0x80) {
    ++length;
  }
  DecodedCharacter last = firstCharacter(text.substr(text.size() - length));
  if (last.length != length) last.wellFormed = false;
  return last;
}

template <typename Predicate>
std::string_view trimCharacters(std::string_view text, Predicate isTrimmed) {
  while (!text.empty()) {
    const DecodedCharacter first = firstCharacter(text);
    if (!first.wellFormed || !isTrimmed(first.character)) break;
    text.remove_prefix(first.length);
  }
  while (!text.empty()) {
    const DecodedCharacter last = lastCharacter(text);
    if (!last.wellFormed || !isTrimmed(last.character)) break;
    text.remove_suffix(last.length);
  }
  return text;
}

/// Pieces between single bytes of a kind, empty ones kept.
template <typename Predicate>
std::vector<std::string_view> splitAtBytes(std::string_view text, Predicate isSeparator) {
  std::vector<std::string_view> pieces;
  const char* begin = text.data();
  const char* const end = begin + text.size();
  for (const char* at = begin; (at = std::find_if(at, end, isSeparator)) != end; begin = ++at)
    pieces.emplace_back(begin, static_cast<std::size_t>(at - begin));
  pieces.emplace_back(begin, static_cast<std::size_t>(end - begin));
  return pieces;
}

/// Pieces between single characters of a kind, empty ones kept. Malformed bytes belong to their piece.
template <typename Predicate>
std::vector<std::string_view> splitAtCharacters(std::string_view text, Predicate isSeparator) {
  std::vector<std::string_view> pieces;
  std::size_t begin = 0;
  for (std::size_t at = 0; at < text.size();) {
    const DecodedCharacter next = firstCharacter(text.substr(at));
    if (next.wellFormed && isSeparator(next.character)) {
      pieces.push_back(text.substr(begin, at - begin));
      begin = at + next.length;
    }
    at += next.length;
  }
  pieces.push_back(text.substr(begin));
  return pieces;
}

/// How many of the first bytes are well-formed; looks at eight ASCII bytes at a time.
std::size_t wellFormedLength(std::string_view bytes) {
  constexpr std::uint64_t kHighBits = 0x8080808080808080U;
  std::size_t at = 0;
  while (at < bytes.size()) {
    std::uint64_t eight = 0;
    if (bytes.size() - at >= sizeof eight) {
      std::memcpy(&eight, bytes.data() + at, sizeof eight);
      if ((eight & kHighBits) == 0) {
        at += sizeof eight;
        continue;
      }
    }
    const DecodedCharacter next = firstCharacter(bytes.substr(at));
    if (!next.wellFormed) break;
    at += next.length;
  }
  return at;
}

}  // namespace

std::vector<std::string_view> lines(std::string_view text) {
  std::vector<std::string_view> pieces;
  std::size_t begin = 0;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = newlineLength(text, at);
    if (length == 0) {
      ++at;
      continue;
    }
    pieces.push_back(text.substr(begin, at - begin));
    at += length;
    begin = at;
  }
  pieces.push_back(text.substr(begin));
  return pieces;
}

std::vector<std::string_view> words(std::string_view text) {
  std::vector<std::string_view> pieces;
  const char* const end = text.data() + text.size();
  for (const char* at = text.data(); at != end;) {
    const char* const begin = std::find_if_not(at, end, isBlank);
    at = std::find_if(begin, end, isBlank);
    if (at != begin) pieces.emplace_back(begin, static_cast<std::size_t>(at - begin));
  }
  return pieces;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  return splitAtBytes(text, [separator](char byte) { return byte == separator; });
}

std::vector<std::string_view> splitAtBlanks(std::string_view text) { return splitAtBytes(text, isBlank); }

std::vector<std::string_view> splitNonEmpty(std::string_view text, char separator) {
  auto pieces = split(text, separator);
  std::erase_if(pieces, [](std::string_view piece) { return piece.empty(); });
  return pieces;
}

std::vector<std::string_view> splitAtWhiteSpace(std::string_view text) {
  return splitAtCharacters(text, isWhiteSpace);
}

std::vector<std::string_view> tokens(std::string_view text) {
  auto pieces = splitAtCharacters(
      text, [](char32_t character) { return isWhiteSpace(character) || isNewline(character); });
  std::erase_if(pieces, [](std::string_view piece) { return piece.empty(); });
  return pieces;
}

std::string_view trimBlanks(std::string_view text) {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
  return text;
}

std::string_view trimWhiteSpaceAndNewlines(std::string_view text) {
  return trimCharacters(text,
                        [](char32_t character) { return isWhiteSpace(character) || isNewline(character); });
}

std::string_view trimPunctuation(std::string_view text) { return trimCharacters(text, isPunctuation); }

std::optional<std::int64_t> parseInteger(std::string_view text) {
  if (text.starts_with('+')) {
    // from_chars knows no plus sign, but would go on to take a minus sign.
    text.remove_prefix(1);
    if (text.empty() || !isDigit(text.front())) return std::nullopt;
  }
  std::int64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [parsedEnd, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || parsedEnd != end) return std::nullopt;
  return value;
}

std::optional<double> parseDouble(std::string_view text) {
  // strtod would skip leading white space; nothing but these begins a number.
  if (text.empty() ||
      !(isDigit(text.front()) || text.front() == '+' || text.front() == '-' || text.front() == '.')) {
    return std::nullopt;
  }
  const std::string terminated(text);
  char* parsedEnd = nullptr;
  const double value = std::strtod(terminated.c_str(), &parsedEnd);
  if (parsedEnd != terminated.c_str() + terminated.size() || !std::isfinite(value)) return std::nullopt;
  return value;
}

std::optional<std::string> decodeText(std::string_view bytes) {
  if (wellFormedLength(bytes) != bytes.size()) return std::nullopt;
  return std::string(bytes);
}

std::string repairText(std::string_view bytes) {
  std::string repaired;
  repaired.reserve(bytes.size());
  while (true) {
    const std::size_t length = wellFormedLength(bytes);
    repaired += bytes.substr(0, length);
    bytes.remove_prefix(length);
    if (bytes.empty()) return repaired;
    repaired += kReplacementCharacter;
    bytes.remove_prefix(firstCharacter(bytes).length);
  }
}

std::string hostLabel(std::string_view value) {
  std::string label;
  while (!value.empty()) {
    const DecodedCharacter next = firstCharacter(value);
    if (next.wellFormed) {
      if (next.character == U' ' || next.character == U'-') {
        label += '-';
      } else if (isAlphanumeric(next.character)) {
        label += value.substr(0, next.length);
      }
    }
    value.remove_prefix(next.length);
  }
  return label;
}

}  // namespace msp
