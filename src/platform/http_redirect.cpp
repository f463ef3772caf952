#include "platform/http_redirect.h"

#include <strings.h>

#include <string_view>
#include <utility>

namespace msp {
namespace {

bool isContentType(const std::string& headerLine) {
  constexpr std::string_view kName = "Content-Type:";
  return strncasecmp(headerLine.c_str(), kName.data(), kName.size()) == 0;
}

}  // namespace

bool isRedirect(int status) {
  return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

HttpRequest redirectedRequest(HttpRequest request, int status, std::string url) {
  request.url = std::move(url);
  const bool keepsMethod = status == 307 || status == 308;
  if (request.method == "POST" && !keepsMethod) {
    request.method = "GET";
    request.body.clear();
    std::erase_if(request.headers, isContentType);
  }
  return request;
}

}  // namespace msp
