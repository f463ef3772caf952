#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/http_client.h"

namespace msp::test {

/// A client that sends nothing: it keeps each request until the test completes it. Safe on any thread.
class FakeHttpClient : public HttpClient {
 public:
  void send(HttpRequest request, Completion completion) override {
    const std::scoped_lock lock(mutex_);
    requests_.push_back(std::move(request));
    completions_.push_back(std::move(completion));
    arrived_.notify_all();
  }

  void download(HttpRequest request, DownloadCompletion completion) override {
    const std::scoped_lock lock(mutex_);
    downloads_.push_back(std::move(request));
    downloadCompletions_.push_back(std::move(completion));
  }

  [[nodiscard]] std::vector<HttpRequest> requests() const {
    const std::scoped_lock lock(mutex_);
    return requests_;
  }

  /// Waits until this many requests were sent in all; false when that takes longer than a minute.
  [[nodiscard]] bool waitForRequests(std::size_t count) const {
    std::unique_lock lock(mutex_);
    return arrived_.wait_for(lock, std::chrono::minutes(1), [&] { return requests_.size() >= count; });
  }

  /// The same, counting only the requests with this method.
  [[nodiscard]] bool waitForRequests(const std::string& method, std::size_t count) const {
    std::unique_lock lock(mutex_);
    return arrived_.wait_for(lock, std::chrono::minutes(1), [&] {
      return std::count_if(requests_.begin(), requests_.end(), [&](const HttpRequest& request) {
               return request.method == method;
             }) >= static_cast<std::ptrdiff_t>(count);
    });
  }

  /// Ends the request of this number (from 0) on the calling thread; each once.
  void complete(std::size_t number, HttpResult result) {
    Completion completion;
    {
      const std::scoped_lock lock(mutex_);
      completion = std::exchange(completions_.at(number), nullptr);
    }
    completion(std::move(result));
  }
  void answer(std::size_t number, int status, std::string body) {
    complete(number, {HttpAnswer{status, std::move(body)}, ""});
  }
  void fail(std::size_t number, std::string error) { complete(number, {std::nullopt, std::move(error)}); }

  /// Downloads are counted by themselves.
  [[nodiscard]] std::vector<HttpRequest> downloads() const {
    const std::scoped_lock lock(mutex_);
    return downloads_;
  }

  /// Ends the download of this number (from 0) on the calling thread; each once.
  void completeDownload(std::size_t number, DownloadResult result) {
    DownloadCompletion completion;
    {
      const std::scoped_lock lock(mutex_);
      completion = std::exchange(downloadCompletions_.at(number), nullptr);
    }
    completion(std::move(result));
  }

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable arrived_;
  std::vector<HttpRequest> requests_;
  std::vector<Completion> completions_;
  std::vector<HttpRequest> downloads_;
  std::vector<DownloadCompletion> downloadCompletions_;
};

}  // namespace msp::test
