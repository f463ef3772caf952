#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/temporary_file.h"

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

/// What became of a download: the file that holds the body, or the reason why there is none.
struct DownloadResult {
  std::optional<TemporaryFile> file;
  std::string error;
};

/// Sends requests without blocking anybody.
class HttpClient {
 public:
  using Completion = std::function<void(HttpResult)>;
  using DownloadCompletion = std::function<void(DownloadResult)>;

  virtual ~HttpClient() = default;

  /// Returns at once, on any thread. The completion runs exactly once, on the client's own thread, which
  /// all requests share: it must not block. Redirects are followed, compressed answers decoded, cookies
  /// kept in memory, certificates verified. A body over 64 MiB is a failure.
  virtual void send(HttpRequest request, Completion completion) = 0;

  /// The same, with the answer's body, of whatever size and whatever the answer's status, in a temporary file
  /// that the completion owns and nobody else uses. A `file:` URL names a file of this machine to be copied:
  /// a regular one, and no redirect leads there. A failure leaves no file behind.
  virtual void download(HttpRequest request, DownloadCompletion completion) = 0;
};

}  // namespace msp
