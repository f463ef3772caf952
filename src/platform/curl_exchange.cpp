#include "platform/curl_exchange.h"

#include <sys/socket.h>

#include <algorithm>
#include <new>
#include <utility>

#include "platform/http_origin.h"
#include "platform/http_redirect.h"
#include "platform/open_socket.h"

namespace msp {
namespace {

using Clock = CurlExchange::Clock;

/// Some versions of curl keep every header, however many come.
constexpr std::size_t kMostHeaderBytes = std::size_t{256} * 1024;

/// The latest time the clock can express stands for all that lie beyond it.
Clock::time_point later(Clock::time_point time, std::chrono::milliseconds delay) {
  const auto room = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::time_point::max() - time);
  return delay < room ? time + delay : Clock::time_point::max();
}

/// Sets options one by one and remembers the first refusal: old versions do not know every option.
class Options {
 public:
  explicit Options(CURL* easy) : easy_(easy) {}

  template <typename Value>
  void set(CURLoption option, Value value) {
    const CURLcode code = curl_easy_setopt(easy_, option, value);
    if (code_ == CURLE_OK) code_ = code;
  }
  [[nodiscard]] CURLcode code() const { return code_; }

 private:
  CURL* easy_;
  CURLcode code_ = CURLE_OK;
};

curl_socket_t onOpenSocket(void* /*context*/, curlsocktype /*purpose*/, curl_sockaddr* address) noexcept {
  return openSocket(address->family, address->socktype, address->protocol);
}

std::string proxyUrl(const ProxyServer& proxy, const std::string& port) {
  const bool isIpV6 = proxy.host.find(':') != std::string::npos;
  return proxy.scheme + "://" + (isIpV6 ? "[" + proxy.host + "]" : proxy.host) + ":" + port;
}

}  // namespace

CurlList curlList(const std::vector<std::string>& lines) {
  CurlList list;
  for (const auto& line : lines) {
    curl_slist* const longer = curl_slist_append(list.get(), line.c_str());
    if (longer == nullptr) throw std::bad_alloc();
    static_cast<void>(list.release());
    list.reset(longer);
  }
  return list;
}

CurlExchange::CurlExchange(HttpRequest request, std::unique_ptr<AnswerReceiver> receiver,
                           Clock::time_point sentAt)
    : request_(std::move(request)),
      receiver_(std::move(receiver)),
      totalDeadline_(request_.totalLimit ? later(sentAt, *request_.totalLimit) : Clock::time_point::max()),
      lastActivity_(sentAt) {}

std::optional<FileError> CurlExchange::beginAttempt() {
  lastActivity_ = Clock::now();
  hasActivity_ = false;
  sent_ = 0;
  headerBytes_ = 0;
  refusal_.reset();
  error_[0] = '\0';
  return receiver_->begin();
}

void CurlExchange::waitForNetwork(Clock::time_point until) { retryAt_ = until; }

void CurlExchange::redirect(int status, std::string url) {
  ++redirects_;
  request_ = redirectedRequest(std::move(request_), status, std::move(url));
}

void CurlExchange::succeed(int status) { receiver_->succeed(status); }

void CurlExchange::fail(std::string error) { receiver_->fail(std::move(error)); }

Clock::time_point CurlExchange::due() const {
  const auto attempt = stage == Stage::kBetweenAttempts ? retryAt_ : later(lastActivity_, request_.idleLimit);
  return std::min(attempt, totalDeadline_);
}

CURLcode CurlExchange::configure(CURL* handle, CURLSH* share) {
  auto headers = request_.headers;
  headers.emplace_back("Expect:");  // a line without value takes curl's own header away
  headerList_ = curlList(headers);
  resolveList_ = curlList(resolveLines);

  Options options(handle);
  options.set(CURLOPT_PRIVATE, this);
  options.set(CURLOPT_SHARE, share);
  options.set(CURLOPT_COOKIEFILE, "");  // cookies are on, in memory
  options.set(CURLOPT_URL, request_.url.c_str());
  // An HTTP/2 connection that died unnoticed, while the Mac slept for instance, would be taken for one
  // request after the other. An HTTP/1.1 connection is closed with the first request that gets no answer on
  // it.
  options.set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  options.set(CURLOPT_HTTP09_ALLOWED, 0L);
  options.set(CURLOPT_ACCEPT_ENCODING, "");  // all that this curl can decode
  options.set(CURLOPT_HTTPHEADER, headerList_.get());
  if (request_.method == "POST") {
    options.set(CURLOPT_POST, 1L);
    options.set(CURLOPT_POSTFIELDS, request_.body.data());
    options.set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request_.body.size()));
  }

  // Where curl has both a file and a folder of the system's certificates, they are the same ones. With the
  // file alone newer versions keep what they read for a day; with the folder they read the file for each
  // connection, which takes ten times as long as all else. A curl that knows no folder refuses, and needs
  // nothing.
  curl_easy_setopt(handle, CURLOPT_CAPATH, nullptr);

  // Set although they are empty: unset ones are taken from the environment.
  options.set(CURLOPT_PROXY, proxy ? proxyUrl(*proxy, connectPort).c_str() : "");
  options.set(CURLOPT_NOPROXY, "");
  options.set(CURLOPT_RESOLVE, resolveList_.get());
  options.set(CURLOPT_RESOLVER_START_FUNCTION, &CurlExchange::onLookup);
  options.set(CURLOPT_RESOLVER_START_DATA, this);
  options.set(CURLOPT_OPENSOCKETFUNCTION, &onOpenSocket);

  options.set(CURLOPT_NOSIGNAL, 1L);
  // With several addresses curl gives the first ones a share of this, so that the last one gets its turn.
  constexpr std::chrono::milliseconds kLongestConnect = std::chrono::minutes(5);
  options.set(CURLOPT_CONNECTTIMEOUT_MS,
              static_cast<long>(std::min(request_.idleLimit, kLongestConnect).count()));
  options.set(CURLOPT_ERRORBUFFER, error_.data());
  options.set(CURLOPT_WRITEFUNCTION, &CurlExchange::onBody);
  options.set(CURLOPT_WRITEDATA, this);
  options.set(CURLOPT_HEADERFUNCTION, &CurlExchange::onHeader);
  options.set(CURLOPT_HEADERDATA, this);
  options.set(CURLOPT_NOPROGRESS, 0L);
  options.set(CURLOPT_XFERINFOFUNCTION, &CurlExchange::onProgress);
  options.set(CURLOPT_XFERINFODATA, this);
  return options.code();
}

std::string CurlExchange::errorText(CURLcode code) const {
  return error_[0] != '\0' ? error_.data() : curl_easy_strerror(code);
}

void CurlExchange::noteActivity() {
  lastActivity_ = Clock::now();
  hasActivity_ = true;
}

bool CurlExchange::receive(std::string_view bytes) {
  noteActivity();
  refusal_ = receiver_->receive(bytes);
  return !refusal_;
}

std::size_t CurlExchange::onBody(char* bytes, std::size_t size, std::size_t count, void* exchange) noexcept {
  try {
    const std::size_t length = size * count;
    return static_cast<CurlExchange*>(exchange)->receive({bytes, length}) ? length : 0;
  } catch (const std::bad_alloc&) {
    return 0;
  }
}

std::size_t CurlExchange::onHeader(char* /*bytes*/, std::size_t size, std::size_t count,
                                   void* exchange) noexcept {
  auto& self = *static_cast<CurlExchange*>(exchange);
  const std::size_t length = size * count;
  self.noteActivity();
  self.headerBytes_ += length;
  return self.headerBytes_ <= kMostHeaderBytes ? length : 0;
}

int CurlExchange::onProgress(void* exchange, curl_off_t /*toReceive*/, curl_off_t /*received*/,
                             curl_off_t /*toSend*/, curl_off_t sent) noexcept {
  auto& self = *static_cast<CurlExchange*>(exchange);
  if (std::exchange(self.sent_, sent) != sent) self.noteActivity();
  return 0;
}

// Runs when curl is about to find an address by itself. Names it would look up in a way that can hold up all
// transfers; but it has been told the address of every name it needs.
int CurlExchange::onLookup(void* /*resolver*/, void* /*reserved*/, void* exchange) noexcept {
  return isNumericHost(static_cast<CurlExchange*>(exchange)->connectHost) ? 0 : 1;
}

}  // namespace msp
