#include "mac/text.h"

#include <charconv>
#include <cstddef>
#include <system_error>

namespace msp::lab {

std::vector<std::string> split(std::string_view text, char separator) {
  std::vector<std::string> pieces;
  while (!text.empty()) {
    const auto end = text.find(separator);
    if (end != 0) pieces.emplace_back(text.substr(0, end));
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return pieces;
}

std::string replaced(std::string text, std::string_view part, std::string_view by) {
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += by.size()) {
    text.replace(at, part.size(), by);
  }
  return text;
}

std::int64_t plainNumber(std::string_view text) {
  std::int64_t number = 0;
  const auto* end = text.data() + text.size();
  const auto [stop, problem] = std::from_chars(text.data(), end, number);
  return problem == std::errc() && stop == end && number >= 0 ? number : -1;
}

}  // namespace msp::lab
