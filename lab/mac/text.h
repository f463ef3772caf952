#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace msp::lab {

/// The pieces between the separators; empty ones are left out.
[[nodiscard]] std::vector<std::string> split(std::string_view text, char separator);

/// The text with every occurrence of a part replaced.
[[nodiscard]] std::string replaced(std::string text, std::string_view part, std::string_view by);

/// The number that the whole text is, in decimal digits alone; -1 when it is none.
[[nodiscard]] std::int64_t plainNumber(std::string_view text);

}  // namespace msp::lab
