#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <string>

#include "platform/mutex.h"
#include "server/loopback_listener.h"

namespace httplib {
class SSLServer;
}

namespace msp::lab {

/// Stands in for the service on the internet that tells a machine its public address: HTTPS, on a loopback
/// address, with a certificate for that service's name by an authority made for this server alone.
///
/// The simulated Mac finds and believes it through the files of writeTrustFiles(). Safe on any thread, but
/// for start() and stop(), which are for the owner's.
class PublicAddressServer {
 public:
  static constexpr const char* kHostName = "api.ipify.org";
  static constexpr int kHttpsPort = 443;

  /// `answer` is what every look-up gets, byte for byte.
  explicit PublicAddressServer(std::string answer = "203.0.113.7");
  ~PublicAddressServer();
  PublicAddressServer(const PublicAddressServer&) = delete;
  PublicAddressServer& operator=(const PublicAddressServer&) = delete;

  /// Listens on the first of 127.0.0.1, 127.0.0.2 ... 127.0.0.64 where the port is free, so that labs can run
  /// side by side; `port` 0 is any free one. False when none can be had: a port below 1024 takes rights.
  [[nodiscard]] bool start(int port = kHttpsPort);
  void stop();

  /// Where it listens; 127.0.0.1 when it does not.
  [[nodiscard]] const std::string& address() const { return address_; }
  [[nodiscard]] int port() const { return listener_.port(); }

  /// The authority's certificate; "" before the first start.
  [[nodiscard]] const std::string& authorityPem() const { return authorityPem_; }

  /// Writes `<labFolder>/etc/hosts` and `<labFolder>/etc/ca-certificates.crt`. To be called after start(),
  /// also after one that failed: the name then leads to a refused connection and not to the internet. False
  /// when a file cannot be written.
  [[nodiscard]] bool writeTrustFiles(const std::string& labFolder) const;

  /// What the following look-ups get; any bytes, also such as are no text.
  void setAnswer(std::string answer);

  /// True when that many look-ups have arrived.
  [[nodiscard]] bool waitForLookups(std::size_t count, std::chrono::steady_clock::time_point deadline);
  [[nodiscard]] std::size_t lookups() const;

 private:
  std::unique_ptr<httplib::SSLServer> http_;
  LoopbackListener listener_;
  std::string address_ = "127.0.0.1";
  std::string authorityPem_;

  mutable Mutex mutex_;
  std::condition_variable_any changed_;
  std::string answer_ MSP_GUARDED_BY(mutex_);
  std::size_t lookups_ MSP_GUARDED_BY(mutex_) = 0;
};

}  // namespace msp::lab
