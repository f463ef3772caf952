#include "server/server_identity.h"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <initializer_list>
#include <utility>

namespace msp::lab {
namespace {

constexpr long kDay = 24L * 60 * 60;

bool addExtension(X509* certificate, X509* issuer, int kind, const std::string& value) {
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str());
  if (extension == nullptr) return false;
  const bool added = X509_add_ext(certificate, extension, -1) == 1;
  X509_EXTENSION_free(extension);
  return added;
}

/// A certificate with a random serial number, not signed yet; nothing when OpenSSL fails.
Certificate makeUnsigned(const std::string& name, EVP_PKEY* key) {
  Certificate certificate(X509_new());
  std::uint64_t serial = 0;
  if (!certificate || RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial) != 1)
    return nullptr;
  const bool filled =
      X509_set_version(certificate.get(), X509_VERSION_3) == 1 &&
      ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate.get()), serial >> 1U) == 1 &&
      X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -kDay) != nullptr &&
      X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 7 * kDay) != nullptr &&
      X509_set_pubkey(certificate.get(), key) == 1 &&
      X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate.get()), "CN", MBSTRING_UTF8,
                                 reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0) == 1;
  return filled ? std::move(certificate) : nullptr;
}

/// Adds the extensions in order and signs; false when OpenSSL fails.
bool sign(X509* certificate, X509* issuer, EVP_PKEY* issuerKey,
          std::initializer_list<std::pair<int, std::string>> extensions) {
  if (X509_set_issuer_name(certificate, X509_get_subject_name(issuer)) != 1) return false;
  for (const auto& [kind, value] : extensions)
    if (!addExtension(certificate, issuer, kind, value)) return false;
  return X509_sign(certificate, issuerKey, EVP_sha256()) > 0;
}

std::string pemText(X509* certificate) {
  const std::unique_ptr<BIO, decltype(&BIO_free)> memory(BIO_new(BIO_s_mem()), BIO_free);
  if (!memory || PEM_write_bio_X509(memory.get(), certificate) != 1) return "";
  char* text = nullptr;
  const long size = BIO_get_mem_data(memory.get(), &text);
  return {text, static_cast<std::size_t>(size)};
}

}  // namespace

void CertificateDeleter::operator()(X509* certificate) const { X509_free(certificate); }
void KeyDeleter::operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }

std::optional<ServerIdentity> makeServerIdentity(const std::string& hostName) {
  const PrivateKey authorityKey(EVP_EC_gen("P-256"));
  PrivateKey key(EVP_EC_gen("P-256"));
  if (!authorityKey || !key) return std::nullopt;
  const Certificate authority = makeUnsigned("Lab authority", authorityKey.get());
  Certificate certificate = makeUnsigned(hostName, key.get());
  if (!authority || !certificate) return std::nullopt;

  const bool isSigned = sign(authority.get(), authority.get(), authorityKey.get(),
                             {{NID_basic_constraints, "critical,CA:TRUE"},
                              {NID_key_usage, "critical,keyCertSign"},
                              {NID_subject_key_identifier, "hash"}}) &&
                        sign(certificate.get(), authority.get(), authorityKey.get(),
                             {{NID_basic_constraints, "critical,CA:FALSE"},
                              {NID_key_usage, "critical,digitalSignature"},
                              {NID_ext_key_usage, "serverAuth"},
                              {NID_subject_alt_name, "DNS:" + hostName},
                              {NID_authority_key_identifier, "keyid"}});
  std::string authorityPem = pemText(authority.get());
  if (!isSigned || authorityPem.empty()) return std::nullopt;
  return ServerIdentity{std::move(key), std::move(certificate), std::move(authorityPem)};
}

}  // namespace msp::lab
