#pragma once

#include <string>
#include <utility>
#include <vector>

#include "platform/http_client.h"
#include "platform/mutex.h"

namespace msp::test {

/// A client that sends nothing: it keeps each request until the test completes it. Safe on any thread.
class FakeHttpClient : public HttpClient {
 public:
  void send(HttpRequest request, Completion completion) override {
    const MutexLock lock(mutex_);
    requests_.push_back(std::move(request));
    completions_.push_back(std::move(completion));
  }

  [[nodiscard]] std::vector<HttpRequest> requests() const {
    const MutexLock lock(mutex_);
    return requests_;
  }

  /// Ends the request of this number (from 0) on the calling thread; each once.
  void complete(std::size_t number, HttpResult result) {
    Completion completion;
    {
      const MutexLock lock(mutex_);
      completion = std::exchange(completions_.at(number), nullptr);
    }
    completion(std::move(result));
  }
  void answer(std::size_t number, int status, std::string body) {
    complete(number, {HttpAnswer{status, std::move(body)}, ""});
  }
  void fail(std::size_t number, std::string error) { complete(number, {std::nullopt, std::move(error)}); }

 private:
  mutable Mutex mutex_;
  std::vector<HttpRequest> requests_ MSP_GUARDED_BY(mutex_);
  std::vector<Completion> completions_ MSP_GUARDED_BY(mutex_);
};

}  // namespace msp::test
