#include "platform/unicode.h"

namespace msp {
namespace {

/// The bytes that may follow a lead byte: how many, and the range of the first of them, which is narrower
/// than 0x80 to 0xBF where an overlong form, a surrogate or a value beyond U+10FFFF would begin.
struct Lead {
  std::size_t continuations = 0;
  unsigned char lowest = 0x80;
  unsigned char highest = 0xBF;
};

Lead leadOf(unsigned char byte) {
  if (byte < 0xC2 || byte > 0xF4) return {};
  if (byte < 0xE0) return {1};
  if (byte == 0xE0) return {2, 0xA0, 0xBF};
  if (byte == 0xED) return {2, 0x80, 0x9F};
  if (byte < 0xF0) return {2};
  if (byte == 0xF0) return {3, 0x90, 0xBF};
  if (byte == 0xF4) return {3, 0x80, 0x8F};
  return {3};
}

}  // namespace

bool isWhiteSpace(char32_t character) {
  if (character < 0x80) return character == U'\t' || character == U' ';
  return character == 0xA0 || character == 0x1680 || (character >= 0x2000 && character <= 0x200A) ||
         character == 0x202F || character == 0x205F || character == 0x3000;
}

bool isNewline(char32_t character) {
  return (character >= 0x0A && character <= 0x0D) || character == 0x85 || character == 0x2028 ||
         character == 0x2029;
}

DecodedCharacter firstCharacter(std::string_view text) {
  const auto first = static_cast<unsigned char>(text.front());
  if (first < 0x80) return {first, 1, true};
  const Lead lead = leadOf(first);
  if (lead.continuations == 0) return {0, 1, false};

  // The lead byte's own share of the value: 5, 4 or 3 bits.
  char32_t character = first & (0x3FU >> lead.continuations);
  for (std::size_t i = 1; i <= lead.continuations; ++i) {
    if (i == text.size()) return {0, i, false};
    const auto byte = static_cast<unsigned char>(text[i]);
    const unsigned char lowest = i == 1 ? lead.lowest : 0x80;
    const unsigned char highest = i == 1 ? lead.highest : 0xBF;
    if (byte < lowest || byte > highest) return {0, i, false};
    character = character << 6U | (byte & 0x3FU);
  }
  return {character, lead.continuations + 1, true};
}

}  // namespace msp
