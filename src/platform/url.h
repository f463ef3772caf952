#pragma once

#include <string_view>

namespace msp {

/// Whether the text is a URL or a relative reference as RFC 3986 has it, with at least one character.
/// Blanks, control characters and characters beyond ASCII never are.
bool isUrl(std::string_view text);

}  // namespace msp
