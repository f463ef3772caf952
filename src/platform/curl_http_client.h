#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/connectivity.h"
#include "platform/http_client.h"
#include "platform/name_lookup.h"
#include "platform/system_proxy.h"
#include "platform/temporary_file.h"

namespace msp {

/// Prepares the process for HTTP. To be called once, before the first client and before any other thread
/// runs.
void initializeHttp();

/// What the client asks its machine; tests answer in its place. The last two are asked on the client's thread
/// and must not block.
struct HttpSurroundings {
  Resolver resolver = resolveHost;
  std::function<bool()> hasUsableNetwork = msp::hasUsableNetwork;
  std::function<std::optional<ProxyServer>(const std::string& scheme, const std::string& host)> proxyFor =
      systemProxyFor;
  /// Where downloads arrive.
  std::string temporaryDirectory = msp::temporaryDirectory();
};

/// Sends requests over libcurl, all on one thread, which sleeps while there are none.
///
/// Connections that the server keeps open are used again. A server or a name look-up that hangs costs only
/// the request that needs it; but all completions share the one thread, which also writes what the downloads
/// bring. The limits run on the monotonic clock; a request that exceeds one fails with "The request timed
/// out.", a URL that is not http or https (for a download: nor a file's) with "unsupported URL". Files of
/// this machine are copied on a few threads of their own, without time limit. The process's environment has
/// no say.
class CurlHttpClient : public HttpClient {
 public:
  /// Throws std::system_error when the system gives no thread or no descriptors.
  explicit CurlHttpClient(HttpSurroundings surroundings = {});
  /// Waits for a completion that runs just now. The requests still under way end uncompleted, nothing of
  /// theirs is called any more, and no file of theirs stays. Not for a completion to call.
  ~CurlHttpClient() override;
  CurlHttpClient(const CurlHttpClient&) = delete;
  CurlHttpClient& operator=(const CurlHttpClient&) = delete;

  /// Only "GET" and "POST" are served as method. A completion that throws costs a line in the event log.
  void send(HttpRequest request, Completion completion) override;
  void download(HttpRequest request, DownloadCompletion completion) override;

 private:
  class Transport;
  std::unique_ptr<Transport> transport_;
};

}  // namespace msp
