#include "platform/file_url.h"

#include <strings.h>

#include <cstddef>

#include "platform/url.h"

namespace msp {
namespace {

constexpr std::string_view kScheme = "file:";

bool hasPrefix(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && strncasecmp(text.data(), prefix.data(), prefix.size()) == 0;
}

unsigned hexDigit(char c) {
  if (c <= '9') return static_cast<unsigned>(c - '0');
  return static_cast<unsigned>((c | 0x20) - 'a') + 10;
}

/// Every "%" of a URL is followed by two hexadecimal digits.
std::string percentDecoded(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i];
      continue;
    }
    decoded += static_cast<char>(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2]));
    i += 2;
  }
  return decoded;
}

}  // namespace

bool isFileUrl(std::string_view url) { return hasPrefix(url, kScheme); }

std::optional<std::string> pathOfFileUrl(std::string_view url) {
  if (!isFileUrl(url) || !isUrl(url)) return std::nullopt;
  auto rest = url.substr(kScheme.size());
  if (hasPrefix(rest, "//")) {
    rest.remove_prefix(2);
    constexpr std::string_view kThisHost = "localhost";
    if (hasPrefix(rest, kThisHost)) rest.remove_prefix(kThisHost.size());
  }
  if (rest.empty() || rest.front() != '/') return std::nullopt;
  auto path = percentDecoded(rest.substr(0, rest.find_first_of("?#")));
  if (path.find('\0') != std::string::npos) return std::nullopt;
  return path;
}

}  // namespace msp
