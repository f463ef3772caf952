#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace msp {

struct HttpRequest {
  /// "GET" or "POST".
  std::string method = "GET";
  std::string url;
  /// Complete lines, for instance "Content-Type: application/json".
  std::vector<std::string> headers;
  /// What a POST carries.
  std::string body;
  /// The request ends when nothing was sent or received for this long.
  std::chrono::milliseconds idleLimit{60'000};
  /// The request ends after this time in all; without it there is no such limit.
  std::optional<std::chrono::milliseconds> totalLimit;
  /// Whether to try again, within totalLimit, while the machine has no usable network at all.
  bool waitsForConnectivity = false;
};

struct HttpAnswer {
  int status = 0;
  std::string body;
};

/// Either an answer, whatever its status, or the reason why there is none.
struct HttpResult {
  std::optional<HttpAnswer> answer;
  std::string error;
};

/// Sends requests without blocking anybody.
class HttpClient {
 public:
  using Completion = std::function<void(HttpResult)>;

  virtual ~HttpClient() = default;

  /// Returns at once, on any thread. The completion runs exactly once, on the client's own thread, which
  /// all requests share: it must not block. Redirects are followed, compressed answers decoded, cookies
  /// kept in memory, certificates verified. A body over 64 MiB is a failure.
  virtual void send(HttpRequest request, Completion completion) = 0;
};

}  // namespace msp
