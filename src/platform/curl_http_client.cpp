#include "platform/curl_http_client.h"

#include <curl/curl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <limits>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "platform/answer_receiver.h"
#include "platform/background_pool.h"
#include "platform/background_thread.h"
#include "platform/curl_exchange.h"
#include "platform/file_calls.h"
#include "platform/file_url.h"
#include "platform/http_origin.h"
#include "platform/http_redirect.h"
#include "platform/mutex.h"
#include "platform/wake_pipe.h"

namespace msp {
namespace {

using Clock = CurlExchange::Clock;
using Stage = CurlExchange::Stage;

constexpr int kMostRedirects = 20;
// Those used last: with no downloads the management server's and the public-address service's.
constexpr long kMostIdleConnections = 2;
constexpr std::chrono::seconds kRetryDelay{1};
constexpr std::size_t kMostCopies = 8;
constexpr const char* kTimedOut = "The request timed out.";
constexpr const char* kUnsupportedUrl = "unsupported URL";

struct MultiCleanup {
  void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};
struct ShareCleanup {
  void operator()(CURLSH* share) const { curl_share_cleanup(share); }
};

/// The time until then in whole milliseconds, rounded up so that it is over afterwards.
int millisecondsUntil(Clock::time_point time) {
  const auto now = Clock::now();
  if (time <= now) return 0;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(time - now).count();
  return static_cast<int>(std::min<decltype(left)>(left, std::numeric_limits<int>::max()));
}

/// A connection that the server closed must end in an error, not in a signal; curl leaves that to its user.
void blockPipeSignal() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

/// What of a URL's host curl may look for: an absolute name's final dot counts in some versions only.
std::vector<std::string> namesInCurl(const CurlExchange& exchange) {
  std::vector<std::string> names{exchange.connectHost + ":" + exchange.connectPort};
  if (exchange.connectHost.size() > 1 && exchange.connectHost.back() == '.') {
    names.push_back(exchange.connectHost.substr(0, exchange.connectHost.size() - 1) + ":" +
                    exchange.connectPort);
  }
  return names;
}

/// Addresses in the form of CURLOPT_RESOLVE: "127.0.0.1,[::1]".
std::string joined(const std::vector<std::string>& addresses) {
  std::string text;
  for (const auto& address : addresses) {
    if (!text.empty()) text += ',';
    text += address.find(':') == std::string::npos ? address : "[" + address + "]";
  }
  return text;
}

}  // namespace

void initializeHttp() {
  // Both would steer TLS from outside: one chooses the library, the other writes the session keys to a file.
  unsetenv("CURL_SSL_BACKEND");  // NOLINT(concurrency-mt-unsafe): the only thread
  unsetenv("SSLKEYLOGFILE");     // NOLINT(concurrency-mt-unsafe): the only thread
  curl_global_init(CURL_GLOBAL_DEFAULT);
}

/// The thread and all it owns.
class CurlHttpClient::Transport {
 public:
  explicit Transport(HttpSurroundings surroundings);
  ~Transport();
  Transport(const Transport&) = delete;
  Transport& operator=(const Transport&) = delete;

  void submit(HttpRequest request, std::unique_ptr<AnswerReceiver> receiver);
  void download(HttpRequest request, DownloadCompletion completion);

 private:
  struct Submission {
    HttpRequest request;
    std::unique_ptr<AnswerReceiver> receiver;
    Clock::time_point sentAt;
  };
  /// Of a file of this machine, at its end.
  struct Copy {
    std::shared_ptr<AnswerReceiver> receiver;
    std::optional<FileError> error;
  };
  struct Lookup {
    std::string host;
    LookupAnswer answer;
  };
  /// What other threads left for the transport thread.
  struct Inbox {
    std::vector<Submission> submissions;
    std::vector<Lookup> lookups;
    std::vector<Copy> copies;
    bool stop = false;
    bool signalled = false;
  };

  void startCopy(const std::string& url, std::shared_ptr<AnswerReceiver> receiver);
  void endCopy(Copy copy);
  [[nodiscard]] std::optional<FileError> copy(const std::string& url, AnswerReceiver& receiver) const;
  void wake() MSP_REQUIRES(mutex_);
  Inbox takeInbox();

  // All below: transport thread only.
  void run();
  void wait();
  void begin(CurlExchange& exchange);
  void continueWith(const Lookup& lookup);
  void tellAddresses(CurlExchange& exchange, const LookupAnswer& answer);
  void transfer(CurlExchange& exchange);
  void performTransfers();
  void transferEnded(CurlExchange& exchange, CURLcode code);
  void handleDue();
  void stopAttempt(CurlExchange& exchange);
  void attemptFailed(CurlExchange& exchange, std::string error, bool beforeConnection);
  void succeed(CurlExchange& exchange, int status);
  void fail(CurlExchange& exchange, std::string error);
  [[nodiscard]] std::unique_ptr<CurlExchange> take(CurlExchange& exchange);
  [[nodiscard]] bool isBeingLookedUp(const std::string& host) const;
  [[nodiscard]] bool isInUse(const std::string& nameInCurl) const;

  const HttpSurroundings surroundings_;
  WakePipe wakePipe_;
  Mutex mutex_;
  Inbox inbox_ MSP_GUARDED_BY(mutex_);
  std::atomic<bool> stopsCopies_ = false;

  // Destroyed from the bottom up: first the easy handles, at last what they share.
  std::unique_ptr<CURLSH, ShareCleanup> share_;
  std::unique_ptr<CURLM, MultiCleanup> multi_;
  std::vector<std::unique_ptr<CurlExchange>> exchanges_;
  /// "host:port" of every name whose addresses curl has been told and not yet been told to forget.
  std::vector<std::string> namesInCurl_;
  std::size_t transfers_ = 0;
  NameLookup lookup_;
  BackgroundPool copies_{"file-copy", kMostCopies};
  std::thread thread_;
};

CurlHttpClient::Transport::Transport(HttpSurroundings surroundings)
    : surroundings_(std::move(surroundings)),
      share_(curl_share_init()),
      multi_(curl_multi_init()),
      lookup_(surroundings_.resolver, [this](const std::string& host, LookupAnswer answer) {
        const MutexLock lock(mutex_);
        inbox_.lookups.push_back({host, std::move(answer)});
        wake();
      }) {
  if (!share_ || !multi_) throw std::system_error(ENOMEM, std::generic_category(), "libcurl");
  curl_share_setopt(share_.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_COOKIE);
  curl_share_setopt(share_.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
  curl_multi_setopt(multi_.get(), CURLMOPT_MAXCONNECTS, kMostIdleConnections);
  thread_ = std::thread([this] { run(); });
}

CurlHttpClient::Transport::~Transport() {
  stopsCopies_ = true;
  {
    const MutexLock lock(mutex_);
    inbox_.stop = true;
    wake();
  }
  thread_.join();
}

void CurlHttpClient::Transport::submit(HttpRequest request, std::unique_ptr<AnswerReceiver> receiver) {
  const auto now = Clock::now();
  const MutexLock lock(mutex_);
  inbox_.submissions.push_back({std::move(request), std::move(receiver), now});
  wake();
}

void CurlHttpClient::Transport::download(HttpRequest request, DownloadCompletion completion) {
  auto receiver = std::make_unique<FileReceiver>(surroundings_.temporaryDirectory, std::move(completion));
  if (isFileUrl(request.url)) return startCopy(request.url, std::move(receiver));
  submit(std::move(request), std::move(receiver));
}

void CurlHttpClient::Transport::startCopy(const std::string& url, std::shared_ptr<AnswerReceiver> receiver) {
  const bool started = copies_.submit([this, url, receiver] {
    auto error = std::optional(fileErrorOf(ENOMEM));  // what an exception here means
    try {
      error = copy(url, *receiver);
    } catch (const std::exception&) {
    }
    endCopy({receiver, std::move(error)});
  });
  if (!started) endCopy({std::move(receiver), fileErrorOf(EAGAIN)});
}

/// Leaves the completion to the transport thread.
void CurlHttpClient::Transport::endCopy(Copy copy) {
  const MutexLock lock(mutex_);
  inbox_.copies.push_back(std::move(copy));
  wake();
}

std::optional<FileError> CurlHttpClient::Transport::copy(const std::string& url,
                                                         AnswerReceiver& receiver) const {
  const auto path = pathOfFileUrl(url);
  if (!path) return FileError{kUnsupportedUrl};
  if (auto error = receiver.begin()) return error;
  return readInPieces(*path, [&](std::string_view bytes) {
    return stopsCopies_ ? fileErrorOf(ECANCELED) : receiver.receive(bytes);
  });
}

void CurlHttpClient::Transport::wake() {
  if (!std::exchange(inbox_.signalled, true)) wakePipe_.signal();
}

CurlHttpClient::Transport::Inbox CurlHttpClient::Transport::takeInbox() {
  const MutexLock lock(mutex_);
  if (inbox_.signalled) wakePipe_.drain();
  return std::exchange(inbox_, {});
}

void CurlHttpClient::Transport::run() {
  becomeBackgroundThread("http");
  blockPipeSignal();
  while (true) {
    Inbox inbox = takeInbox();
    if (inbox.stop) break;
    for (auto& [request, receiver, sentAt] : inbox.submissions) {
      exchanges_.push_back(std::make_unique<CurlExchange>(std::move(request), std::move(receiver), sentAt));
      begin(*exchanges_.back());
    }
    for (const auto& lookup : inbox.lookups) continueWith(lookup);
    for (const auto& [receiver, error] : inbox.copies) {
      constexpr int kOk = 200;
      error ? receiver->fail(error->description) : receiver->succeed(kOk);
    }
    if (transfers_ > 0) performTransfers();
    handleDue();
    wait();
  }
  for (const auto& exchange : exchanges_) stopAttempt(*exchange);
  exchanges_.clear();
}

void CurlHttpClient::Transport::wait() {
  auto due = Clock::time_point::max();
  for (const auto& exchange : exchanges_) due = std::min(due, exchange->due());
  const int left = millisecondsUntil(due);
  if (transfers_ > 0) {
    curl_waitfd wakeUp{wakePipe_.readable(), CURL_WAIT_POLLIN, 0};
    if (curl_multi_wait(multi_.get(), &wakeUp, 1, left, nullptr) == CURLM_OK) return;
    // It cannot wait, without memory for instance: a moment's pause, lest the loop turn at full speed.
    constexpr int kPauseMilliseconds = 100;
    pollfd pause{wakePipe_.readable(), POLLIN, 0};
    poll(&pause, 1, std::min(left, kPauseMilliseconds));
  } else {
    pollfd wakeUp{wakePipe_.readable(), POLLIN, 0};
    poll(&wakeUp, 1, exchanges_.empty() ? -1 : left);
  }
}

/// Starts an attempt: whom to connect to, and where that is.
void CurlHttpClient::Transport::begin(CurlExchange& exchange) {
  const auto& request = exchange.request();
  const auto origin = httpOrigin(request.url);
  if (!origin) return fail(exchange, kUnsupportedUrl);
  if (request.method != "GET" && request.method != "POST") {
    return fail(exchange, "unsupported method");
  }
  if (const auto error = exchange.beginAttempt()) return fail(exchange, error->description);
  exchange.proxy = surroundings_.proxyFor(origin->scheme, origin->host);
  if (exchange.proxy) {
    constexpr int kUsualPort = 80, kUsualSocksPort = 1080;
    const int usualPort = exchange.proxy->scheme == "http" ? kUsualPort : kUsualSocksPort;
    exchange.connectHost = exchange.proxy->host;
    exchange.connectPort = std::to_string(exchange.proxy->port != 0 ? exchange.proxy->port : usualPort);
  } else {
    exchange.connectHost = origin->host;
    exchange.connectPort = origin->port;
  }
  exchange.resolveLines.clear();
  if (isNumericHost(exchange.connectHost)) return transfer(exchange);
  exchange.stage = Stage::kLookingUp;
  lookup_.start(exchange.connectHost);
}

void CurlHttpClient::Transport::continueWith(const Lookup& lookup) {
  std::vector<CurlExchange*> waiting;
  for (const auto& exchange : exchanges_) {
    if (exchange->stage == Stage::kLookingUp && exchange->connectHost == lookup.host) {
      waiting.push_back(exchange.get());
    }
  }
  for (CurlExchange* const exchange : waiting) {
    if (lookup.answer.addresses.empty()) {
      attemptFailed(*exchange, "Could not resolve host: " + lookup.host + " (" + lookup.answer.error + ")",
                    true);
    } else {
      tellAddresses(*exchange, lookup.answer);
      transfer(*exchange);
    }
  }
}

/// Prepares the lines that tell curl where the exchange's host is, and make it forget what nobody needs now.
void CurlHttpClient::Transport::tellAddresses(CurlExchange& exchange, const LookupAnswer& answer) {
  std::erase_if(namesInCurl_, [&](const std::string& name) {
    if (isInUse(name)) return false;
    exchange.resolveLines.push_back("-" + name);
    return true;
  });
  for (const auto& name : namesInCurl(exchange)) {
    exchange.resolveLines.push_back("-" + name);
    exchange.resolveLines.push_back(name + ":" + joined(answer.addresses));
    if (!isInUse(name)) namesInCurl_.push_back(name);
  }
}

void CurlHttpClient::Transport::transfer(CurlExchange& exchange) {
  CurlEasy easy(curl_easy_init());
  const CURLcode code = easy ? exchange.configure(easy.get(), share_.get()) : CURLE_OUT_OF_MEMORY;
  if (code != CURLE_OK) return fail(exchange, exchange.errorText(code));
  const CURLMcode added = curl_multi_add_handle(multi_.get(), easy.get());
  if (added != CURLM_OK) return fail(exchange, curl_multi_strerror(added));
  exchange.easy = std::move(easy);
  exchange.stage = Stage::kTransferring;
  ++transfers_;
}

void CurlHttpClient::Transport::performTransfers() {
  // While a completion ran, or the disk kept a download waiting, data came in for others, who must not count
  // as idle: they get their turn once more.
  constexpr std::chrono::milliseconds kSlow{100};
  bool anyEnded = true;
  bool wasSlow = false, secondTurn = false;
  while (std::exchange(anyEnded, false) || std::exchange(wasSlow, false)) {
    int running = 0;
    const auto begin = Clock::now();
    curl_multi_perform(multi_.get(), &running);
    wasSlow = !secondTurn && Clock::now() - begin > kSlow;
    secondTurn = wasSlow;
    int left = 0;
    while (const CURLMsg* const message = curl_multi_info_read(multi_.get(), &left)) {
      anyEnded = true;
      char* exchange = nullptr;
      curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &exchange);
      transferEnded(*static_cast<CurlExchange*>(static_cast<void*>(exchange)), message->data.result);
    }
  }
}

void CurlHttpClient::Transport::transferEnded(CurlExchange& exchange, CURLcode code) {
  CURL* const easy = exchange.easy.get();
  if (code == CURLE_OK) {
    long status = 0;
    const char* location = nullptr;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_getinfo(easy, CURLINFO_REDIRECT_URL, &location);
    if (location == nullptr || !isRedirect(static_cast<int>(status))) {
      return succeed(exchange, static_cast<int>(status));
    }
    if (exchange.redirects() == kMostRedirects) {
      return fail(exchange, "too many HTTP redirects");
    }
    std::string url = location;  // dies with the attempt
    stopAttempt(exchange);
    exchange.redirect(static_cast<int>(status), std::move(url));
    return begin(exchange);
  }
  if (const auto& refusal = exchange.refusal()) return fail(exchange, refusal->description);
  if (code == CURLE_OPERATION_TIMEDOUT) {
    return attemptFailed(exchange, kTimedOut, !exchange.hasMovedData());
  }
  long systemError = 0;
  curl_easy_getinfo(easy, CURLINFO_OS_ERRNO, &systemError);
  attemptFailed(exchange, exchange.errorText(code),
                code == CURLE_COULDNT_CONNECT && systemError != ECONNREFUSED);
}

/// Ends what is out of time, and tries again what waited for a network.
void CurlHttpClient::Transport::handleDue() {
  const auto now = Clock::now();
  std::vector<CurlExchange*> due;
  for (const auto& exchange : exchanges_) {
    if (exchange->due() <= now) due.push_back(exchange.get());
  }
  for (CurlExchange* const exchange : due) {
    if (exchange->isTotalLimitOver(now)) {
      fail(*exchange, kTimedOut);
    } else if (exchange->stage == Stage::kBetweenAttempts) {
      begin(*exchange);
    } else {
      attemptFailed(*exchange, kTimedOut, !exchange->hasMovedData());
    }
  }
}

void CurlHttpClient::Transport::stopAttempt(CurlExchange& exchange) {
  const Stage stage = std::exchange(exchange.stage, Stage::kBetweenAttempts);
  if (stage == Stage::kTransferring) {
    curl_multi_remove_handle(multi_.get(), exchange.easy.get());
    --transfers_;
    exchange.easy.reset();
  } else if (stage == Stage::kLookingUp && !isBeingLookedUp(exchange.connectHost)) {
    lookup_.forget(exchange.connectHost);
  }
}

/// Without any network an attempt that came to nothing is made again; otherwise the exchange has failed.
void CurlHttpClient::Transport::attemptFailed(CurlExchange& exchange, std::string error,
                                              bool beforeConnection) {
  if (!beforeConnection || !exchange.request().waitsForConnectivity || surroundings_.hasUsableNetwork()) {
    return fail(exchange, std::move(error));
  }
  stopAttempt(exchange);
  exchange.waitForNetwork(Clock::now() + kRetryDelay);
}

void CurlHttpClient::Transport::succeed(CurlExchange& exchange, int status) {
  take(exchange)->succeed(status);
}

void CurlHttpClient::Transport::fail(CurlExchange& exchange, std::string error) {
  take(exchange)->fail(std::move(error));
}

std::unique_ptr<CurlExchange> CurlHttpClient::Transport::take(CurlExchange& exchange) {
  stopAttempt(exchange);
  const auto place = std::find_if(exchanges_.begin(), exchanges_.end(),
                                  [&](const auto& candidate) { return candidate.get() == &exchange; });
  auto owner = std::move(*place);
  exchanges_.erase(place);
  return owner;
}

bool CurlHttpClient::Transport::isBeingLookedUp(const std::string& host) const {
  return std::any_of(exchanges_.begin(), exchanges_.end(), [&](const auto& exchange) {
    return exchange->stage == Stage::kLookingUp && exchange->connectHost == host;
  });
}

bool CurlHttpClient::Transport::isInUse(const std::string& nameInCurl) const {
  return std::any_of(exchanges_.begin(), exchanges_.end(), [&](const auto& exchange) {
    const auto names = namesInCurl(*exchange);
    return exchange->stage == Stage::kTransferring &&
           std::find(names.begin(), names.end(), nameInCurl) != names.end();
  });
}

CurlHttpClient::CurlHttpClient(HttpSurroundings surroundings)
    : transport_(std::make_unique<Transport>(std::move(surroundings))) {}

CurlHttpClient::~CurlHttpClient() = default;

void CurlHttpClient::send(HttpRequest request, Completion completion) {
  transport_->submit(std::move(request), std::make_unique<MemoryReceiver>(std::move(completion)));
}

void CurlHttpClient::download(HttpRequest request, DownloadCompletion completion) {
  transport_->download(std::move(request), std::move(completion));
}

}  // namespace msp
