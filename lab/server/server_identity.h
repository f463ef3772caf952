#pragma once

#include <openssl/types.h>

#include <memory>
#include <optional>
#include <string>

namespace msp::lab {

struct CertificateDeleter {
  void operator()(X509* certificate) const;
};
struct KeyDeleter {
  void operator()(EVP_PKEY* key) const;
};
using Certificate = std::unique_ptr<X509, CertificateDeleter>;
using PrivateKey = std::unique_ptr<EVP_PKEY, KeyDeleter>;

/// A host's key and certificate, and the certificate of the authority that signed it and exists for this one
/// alone: its key is forgotten at once.
struct ServerIdentity {
  PrivateKey key;
  Certificate certificate;
  std::string authorityPem;
};

/// Makes an identity with keys of its own (EC P-256, valid for a week); nothing when OpenSSL fails.
std::optional<ServerIdentity> makeServerIdentity(const std::string& hostName);

}  // namespace msp::lab
