#pragma once

#include <optional>
#include <string>
#include <string_view>

/// URLs that name a file of this machine (RFC 8089). Pure functions, safe on any thread.
namespace msp {

/// Whether the scheme is "file", in whatever case.
bool isFileUrl(std::string_view url);

/// "/a b" of "file:///a%20b", "file:/a%20b" and "file://localhost/a%20b"; a query or fragment does not count.
/// Nothing when the URL names another host, no absolute path, or a path that no file can have.
std::optional<std::string> pathOfFileUrl(std::string_view url);

}  // namespace msp
