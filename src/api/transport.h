#pragma once

#include <functional>
#include <optional>
#include <string>

#include "api/json_utilities.h"
#include "platform/http_client.h"

namespace msp {

/// The one way to the server: a JSON object posted, a JSON object back.
class Transport {
 public:
  /// Gets the decoded answer (empty when it was no JSON object), or nothing when the request failed.
  using Completion = std::function<void(std::optional<Json> answer)>;

  /// `http` must outlive the transport.
  explicit Transport(HttpClient& http) : http_(http) {}

  /// Returns at once, on any thread; the completion runs later, on the HTTP client's thread. It is never
  /// called when the body cannot be written as JSON or `url` is no URL. A failure is logged here.
  void post(const Json& body, const std::string& url, Completion completion);

 private:
  HttpClient& http_;
};

}  // namespace msp
