#include "platform/url.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <string>

namespace msp {
namespace {

bool isAlpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isHexDigit(char c) { return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }
bool isOneOf(char c, std::string_view set) { return set.find(c) != std::string_view::npos; }

bool isUnreserved(char c) { return isAlpha(c) || isDigit(c) || isOneOf(c, "-._~"); }
bool isSubDelimiter(char c) { return isOneOf(c, "!$&'()*+,;="); }

/// Unreserved characters, sub-delimiters, percent-encoded octets and the characters of `more`.
bool consistsOf(std::string_view text, std::string_view more) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%') {
      if (text.size() - i < 3 || !isHexDigit(text[i + 1]) || !isHexDigit(text[i + 2])) return false;
      i += 2;
    } else if (!isUnreserved(text[i]) && !isSubDelimiter(text[i]) && !isOneOf(text[i], more)) {
      return false;
    }
  }
  return true;
}

/// scheme = ALPHA *( ALPHA / DIGIT / "+" / "-" / "." )
bool isScheme(std::string_view text) {
  return !text.empty() && isAlpha(text.front()) && std::all_of(text.begin(), text.end(), [](char c) {
    return isAlpha(c) || isDigit(c) || isOneOf(c, "+-.");
  });
}

bool isIpV6Address(std::string_view text) {
  in6_addr address{};
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return isHexDigit(c) || c == ':' || c == '.'; }) &&
         inet_pton(AF_INET6, std::string(text).c_str(), &address) == 1;
}

/// IPvFuture = "v" 1*HEXDIG "." 1*( unreserved / sub-delims / ":" )
bool isFutureAddress(std::string_view text) {
  const auto dot = text.find('.');
  if (dot == std::string_view::npos || dot < 2 || !isOneOf(text.front(), "vV")) return false;
  const auto version = text.substr(1, dot - 1);
  const auto rest = text.substr(dot + 1);
  return std::all_of(version.begin(), version.end(), isHexDigit) && !rest.empty() &&
         std::all_of(rest.begin(), rest.end(),
                     [](char c) { return isUnreserved(c) || isSubDelimiter(c) || c == ':'; });
}

/// authority = [ userinfo "@" ] host [ ":" port ]
bool isAuthority(std::string_view text) {
  if (const auto at = text.find('@'); at != std::string_view::npos) {
    if (!consistsOf(text.substr(0, at), ":")) return false;
    text.remove_prefix(at + 1);
  }
  if (!text.empty() && text.front() == '[') {
    const auto end = text.find(']');
    if (end == std::string_view::npos) return false;
    const auto address = text.substr(1, end - 1);
    if (!isIpV6Address(address) && !isFutureAddress(address)) return false;
    text.remove_prefix(end + 1);
    if (text.empty()) return true;
    if (text.front() != ':') return false;
  }
  const auto colon = text.find(':');
  if (!consistsOf(text.substr(0, colon), "")) return false;
  if (colon == std::string_view::npos) return true;
  const auto port = text.substr(colon + 1);
  return std::all_of(port.begin(), port.end(), isDigit);
}

/// Cuts off what stands before the first of `separators`; without one, everything.
std::string_view cutBefore(std::string_view& text, std::string_view separators) {
  const auto end = std::min(text.find_first_of(separators), text.size());
  const auto piece = text.substr(0, end);
  text.remove_prefix(end);
  return piece;
}

}  // namespace

bool isUrl(std::string_view text) {
  if (text.empty()) return false;
  auto rest = text;
  // A colon in the first segment ends a scheme; a relative reference has none there.
  if (const auto end = rest.find_first_of(":/?#"); end != std::string_view::npos && rest[end] == ':') {
    if (!isScheme(rest.substr(0, end))) return false;
    rest.remove_prefix(end + 1);
  }
  if (rest.substr(0, 2) == "//") {
    rest.remove_prefix(2);
    if (!isAuthority(cutBefore(rest, "/?#"))) return false;
  }
  if (!consistsOf(cutBefore(rest, "?#"), ":@/")) return false;
  if (!rest.empty() && rest.front() == '?') {
    rest.remove_prefix(1);
    if (!consistsOf(cutBefore(rest, "#"), ":@/?")) return false;
  }
  if (rest.empty()) return true;
  rest.remove_prefix(1);
  return consistsOf(rest, ":@/?");
}

}  // namespace msp
