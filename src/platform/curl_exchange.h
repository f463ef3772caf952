#pragma once

#include <curl/curl.h>

#include <array>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/answer_receiver.h"
#include "platform/http_client.h"
#include "platform/system_proxy.h"

namespace msp {

struct CurlEasyCleanup {
  void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
using CurlEasy = std::unique_ptr<CURL, CurlEasyCleanup>;

struct CurlListFree {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using CurlList = std::unique_ptr<curl_slist, CurlListFree>;

/// The lines as libcurl wants them. Throws std::bad_alloc.
CurlList curlList(const std::vector<std::string>& lines);

/// One request on its way to its answer: what it is, how long it may take, and what has arrived so far.
///
/// It may take several attempts: one for each redirect, one for each time the network was gone. For the
/// transport thread only.
class CurlExchange {
 public:
  using Clock = std::chrono::steady_clock;
  enum class Stage { kBetweenAttempts, kLookingUp, kTransferring };

  CurlExchange(HttpRequest request, std::unique_ptr<AnswerReceiver> receiver, Clock::time_point sentAt);

  /// Forgets what an earlier attempt brought and starts the idle limit anew. Otherwise the reason why nothing
  /// can be received.
  [[nodiscard]] std::optional<FileError> beginAttempt();
  /// Between two attempts: the next one is to begin at that time.
  void waitForNetwork(Clock::time_point until);
  void redirect(int status, std::string url);
  /// Both call the completion; the exchange is over then.
  void succeed(int status);
  void fail(std::string error);

  /// The next time at which something must be done about this exchange, whatever the network does.
  [[nodiscard]] Clock::time_point due() const;
  [[nodiscard]] bool isTotalLimitOver(Clock::time_point now) const { return now >= totalDeadline_; }
  /// Whether this attempt has sent some of the body or received anything: the server knows of it then.
  [[nodiscard]] bool hasMovedData() const { return hasActivity_; }

  /// Tells a fresh easy handle all of this attempt. The exchange must stay where it is during the transfer.
  CURLcode configure(CURL* handle, CURLSH* share);

  [[nodiscard]] const HttpRequest& request() const { return request_; }
  [[nodiscard]] int redirects() const { return redirects_; }
  /// Why the receiver took no more, when it was that which ended the attempt.
  [[nodiscard]] const std::optional<FileError>& refusal() const { return refusal_; }
  /// curl's own words on what went wrong, or those for the code.
  [[nodiscard]] std::string errorText(CURLcode code) const;

  Stage stage = Stage::kBetweenAttempts;
  /// The host that is to be connected to: the target's or the proxy's.
  std::string connectHost;
  std::string connectPort;
  std::optional<ProxyServer> proxy;
  /// Lines for CURLOPT_RESOLVE; empty when the host is an address.
  std::vector<std::string> resolveLines;
  /// While transferring.
  CurlEasy easy;

 private:
  static std::size_t onBody(char* bytes, std::size_t size, std::size_t count, void* exchange) noexcept;
  static std::size_t onHeader(char* bytes, std::size_t size, std::size_t count, void* exchange) noexcept;
  static int onProgress(void* exchange, curl_off_t toReceive, curl_off_t received, curl_off_t toSend,
                        curl_off_t sent) noexcept;
  static int onLookup(void* resolver, void* reserved, void* exchange) noexcept;

  void noteActivity();
  bool receive(std::string_view bytes);

  HttpRequest request_;
  std::unique_ptr<AnswerReceiver> receiver_;
  Clock::time_point totalDeadline_;
  Clock::time_point lastActivity_;
  Clock::time_point retryAt_;
  bool hasActivity_ = false;
  int redirects_ = 0;
  curl_off_t sent_ = 0;
  std::size_t headerBytes_ = 0;
  std::optional<FileError> refusal_;
  std::array<char, CURL_ERROR_SIZE> error_{};
  CurlList headerList_;
  CurlList resolveList_;
};

}  // namespace msp
