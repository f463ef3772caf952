#include "server/public_address_server.h"

#include <httplib.h>

#include <utility>

#include "server/server_identity.h"
#include "server/trust_files.h"

namespace msp::lab {

constexpr int kAddresses = 64;

PublicAddressServer::PublicAddressServer(std::string answer) : answer_(std::move(answer)) {}

PublicAddressServer::~PublicAddressServer() { stop(); }

bool PublicAddressServer::start(int port) {
  if (http_) return false;
  const auto identity = makeServerIdentity(kHostName);
  if (!identity) return false;
  authorityPem_ = identity->authorityPem;
  for (int number = 1; number <= kAddresses; ++number) {
    http_ = std::make_unique<httplib::SSLServer>(identity->certificate.get(), identity->key.get());
    http_->Get("/", [this](const httplib::Request&, httplib::Response& response) {
      const MutexLock lock(mutex_);
      ++lookups_;
      changed_.notify_all();
      response.set_content(answer_, "text/plain");
    });
    const std::string address = "127.0.0." + std::to_string(number);
    if (listener_.start(*http_, address, port)) {
      address_ = address;
      return true;
    }
  }
  http_.reset();
  return false;
}

void PublicAddressServer::stop() {
  listener_.stop();
  http_.reset();
}

bool PublicAddressServer::writeTrustFiles(const std::string& labFolder) const {
  return writeHostsFile(labFolder, kHostName, address_) && writeTrustedAuthorities(labFolder, authorityPem_);
}

void PublicAddressServer::setAnswer(std::string answer) {
  const MutexLock lock(mutex_);
  answer_ = std::move(answer);
}

bool PublicAddressServer::waitForLookups(std::size_t count, std::chrono::steady_clock::time_point deadline) {
  const MutexLock lock(mutex_);
  while (lookups_ < count && changed_.wait_until(mutex_, deadline) == std::cv_status::no_timeout)
    ;
  return lookups_ >= count;
}

std::size_t PublicAddressServer::lookups() const {
  const MutexLock lock(mutex_);
  return lookups_;
}

}  // namespace msp::lab
