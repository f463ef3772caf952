#include "platform/http_origin.h"

#include <arpa/inet.h>
#include <curl/curl.h>
#include <netinet/in.h>

#include <algorithm>
#include <memory>

namespace msp {
namespace {

std::string partOf(CURLU* url, CURLUPart part, unsigned int flags = 0) {
  char* text = nullptr;
  if (curl_url_get(url, part, &text, flags) != CURLUE_OK) return "";
  const std::unique_ptr<char, decltype(&curl_free)> owner(text, &curl_free);
  return text;
}

void toLowerCase(std::string& text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
}

}  // namespace

std::optional<HttpOrigin> httpOrigin(const std::string& url) {
  const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> parsed(curl_url(), &curl_url_cleanup);
  if (!parsed || curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK) return std::nullopt;
  HttpOrigin origin{partOf(parsed.get(), CURLUPART_SCHEME), partOf(parsed.get(), CURLUPART_HOST),
                    partOf(parsed.get(), CURLUPART_PORT, CURLU_DEFAULT_PORT)};
  toLowerCase(origin.scheme);
  toLowerCase(origin.host);
  if (origin.scheme != "http" && origin.scheme != "https") return std::nullopt;
  if (!origin.host.empty() && origin.host.front() == '[')
    origin.host = origin.host.substr(1, origin.host.size() - 2);
  const bool isAscii =
      std::all_of(origin.host.begin(), origin.host.end(), [](char c) { return c > ' ' && c < '\x7f'; });
  if (origin.host.empty() || !isAscii) return std::nullopt;
  return origin;
}

bool isNumericHost(const std::string& host) {
  in_addr v4{};
  in6_addr v6{};
  // An IPv6 address may carry a zone: "fe80::1%en0".
  return inet_pton(AF_INET, host.c_str(), &v4) == 1 ||
         inet_pton(AF_INET6, host.substr(0, host.find('%')).c_str(), &v6) == 1;
}

}  // namespace msp
