#include <gtest/gtest.h>
#include <httplib.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <sstream>
#include <string>

#include "server/public_address_server.h"
#include "server/server_identity.h"
#include "server/trust_files.h"

namespace msp::lab {
namespace {

using namespace std::chrono_literals;

std::string contentOf(const std::filesystem::path& file) {
  std::ostringstream text;
  text << std::ifstream(file, std::ios::binary).rdbuf();
  return text.str();
}

/// A directory of the test's own, gone with it.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string pattern = std::filesystem::temp_directory_path() / "lab-server-test-XXXXXX";
    path_ = mkdtemp(pattern.data());
  }
  ~TemporaryFolder() { std::filesystem::remove_all(path_); }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

/// The authority's certificate, read back from its text.
Certificate readPem(const std::string& pem) {
  const std::unique_ptr<BIO, decltype(&BIO_free)> memory(
      BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())), BIO_free);
  return Certificate(PEM_read_bio_X509(memory.get(), nullptr, nullptr, nullptr));
}

/// OpenSSL's word on a certificate of a server by that name.
std::string verify(X509* certificate, X509* authority, const char* hostName) {
  const std::unique_ptr<X509_STORE, decltype(&X509_STORE_free)> store(X509_STORE_new(), X509_STORE_free);
  const std::unique_ptr<X509_STORE_CTX, decltype(&X509_STORE_CTX_free)> context(X509_STORE_CTX_new(),
                                                                                X509_STORE_CTX_free);
  X509_STORE_add_cert(store.get(), authority);
  X509_STORE_CTX_init(context.get(), store.get(), certificate, nullptr);
  X509_VERIFY_PARAM* wanted = X509_STORE_CTX_get0_param(context.get());
  X509_VERIFY_PARAM_set1_host(wanted, hostName, 0);
  X509_VERIFY_PARAM_set_purpose(wanted, X509_PURPOSE_SSL_SERVER);
  X509_VERIFY_PARAM_set_flags(wanted, X509_V_FLAG_X509_STRICT);
  X509_verify_cert(context.get());
  return X509_verify_cert_error_string(X509_STORE_CTX_get_error(context.get()));
}

TEST(ServerIdentityTest, aCertificateVerifiesAgainstItsOwnAuthorityAndNameOnly) {
  const auto identity = makeServerIdentity("api.example.org");
  const auto other = makeServerIdentity("api.example.org");
  ASSERT_TRUE(identity && other);
  const Certificate authority = readPem(identity->authorityPem);
  ASSERT_TRUE(authority);
  EXPECT_EQ(verify(identity->certificate.get(), authority.get(), "api.example.org"), "ok");
  EXPECT_EQ(verify(identity->certificate.get(), authority.get(), "example.org"), "hostname mismatch");
  EXPECT_NE(verify(other->certificate.get(), authority.get(), "api.example.org"), "ok");
  EXPECT_EQ(X509_check_private_key(identity->certificate.get(), identity->key.get()), 1);
  EXPECT_NE(identity->authorityPem, other->authorityPem);
}

TEST(TrustFilesTest, theyAreTheSystemsFilesAndOneEntryMore) {
  const TemporaryFolder lab;
  ASSERT_TRUE(writeHostsFile(lab.path(), "api.example.org", "127.0.0.9"));
  EXPECT_EQ(contentOf(lab.path() / "etc/hosts"), "127.0.0.9 api.example.org\n" + contentOf("/etc/hosts"));
  ASSERT_TRUE(writeTrustedAuthorities(lab.path(), "PEM\n"));
  EXPECT_EQ(contentOf(lab.path() / "etc/ca-certificates.crt"),
            contentOf("/etc/ssl/certs/ca-certificates.crt") + "PEM\n");
}

TEST(TrustFilesTest, aFolderThatCannotBeMadeIsSaid) {
  const TemporaryFolder lab;
  std::ofstream(lab.path() / "file") << "in the way";
  EXPECT_FALSE(writeHostsFile(lab.path() / "file", "api.example.org", "127.0.0.9"));
  EXPECT_FALSE(writeTrustedAuthorities(lab.path() / "file", "PEM\n"));
}

/// One look-up as an agent makes it: the name checked against the certificate, the authority against the
/// file. "200 body", or the client's error.
std::string lookUp(const PublicAddressServer& server, const std::filesystem::path& authorities,
                   const std::string& hostName = PublicAddressServer::kHostName) {
  httplib::SSLClient client(hostName, server.port());
  client.set_hostname_addr_map({{hostName, server.address()}});
  client.set_ca_cert_path(authorities);
  const auto answer = client.Get("/");
  return answer ? std::to_string(answer->status) + " " + answer->body : httplib::to_string(answer.error());
}

TEST(PublicAddressServerTest, itIsBelievedByWhoReadsItsTrustFiles) {
  const TemporaryFolder lab;
  PublicAddressServer server;
  ASSERT_TRUE(server.start(0));
  ASSERT_TRUE(server.writeTrustFiles(lab.path()));
  const auto authorities = lab.path() / "etc/ca-certificates.crt";
  EXPECT_EQ(lookUp(server, authorities), "200 203.0.113.7");
  EXPECT_EQ(lookUp(server, "/etc/ssl/certs/ca-certificates.crt"), "SSLServerVerification");
  EXPECT_EQ(lookUp(server, authorities, "localhost"), "SSLServerVerification");
  EXPECT_EQ(server.lookups(), 1U);
  EXPECT_EQ(contentOf(lab.path() / "etc/hosts").rfind(server.address() + " api.ipify.org\n", 0), 0U);

  server.stop();
  EXPECT_EQ(lookUp(server, authorities), "Connection");
}

TEST(PublicAddressServerTest, itAnswersWithAnyBytes) {
  const TemporaryFolder lab;
  PublicAddressServer server("198.51.100.1");
  ASSERT_TRUE(server.start(0));
  ASSERT_TRUE(server.writeTrustFiles(lab.path()));
  const auto authorities = lab.path() / "etc/ca-certificates.crt";
  EXPECT_EQ(lookUp(server, authorities), "200 198.51.100.1");
  server.setAnswer("\xff\xfe");
  EXPECT_EQ(lookUp(server, authorities), "200 \xff\xfe");
  server.setAnswer("");
  EXPECT_EQ(lookUp(server, authorities), "200 ");
}

TEST(PublicAddressServerTest, aLookupCanBeWaitedFor) {
  const TemporaryFolder lab;
  PublicAddressServer server;
  ASSERT_TRUE(server.start(0));
  ASSERT_TRUE(server.writeTrustFiles(lab.path()));
  EXPECT_FALSE(server.waitForLookups(1, std::chrono::steady_clock::now()));
  auto waiting = std::async(std::launch::async,
                            [&] { return server.waitForLookups(1, std::chrono::steady_clock::now() + 30s); });
  EXPECT_EQ(lookUp(server, lab.path() / "etc/ca-certificates.crt"), "200 203.0.113.7");
  EXPECT_TRUE(waiting.get());
}

TEST(PublicAddressServerTest, twoOnOnePortTakeTwoAddresses) {
  PublicAddressServer first;
  ASSERT_TRUE(first.start(0));
  EXPECT_FALSE(first.start(0)) << "it listens already";
  PublicAddressServer second;
  if (!second.start(first.port())) GTEST_SKIP() << "this system has only 127.0.0.1";
  EXPECT_NE(first.address(), second.address());
  EXPECT_EQ(first.port(), second.port());
}

}  // namespace
}  // namespace msp::lab
