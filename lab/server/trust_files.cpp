#include "server/trust_files.h"

#include <filesystem>
#include <fstream>
#include <sstream>

namespace msp::lab {
namespace {

constexpr const char* kSystemHosts = "/etc/hosts";
constexpr const char* kSystemAuthorities = "/etc/ssl/certs/ca-certificates.crt";

/// A file's content; "" when there is none.
std::string content(const char* path) {
  std::ostringstream text;
  const std::ifstream file(path, std::ios::binary);
  if (file) text << file.rdbuf();
  return text.str();
}

bool write(const std::string& labFolder, const char* name, const std::string& text) {
  const auto folder = std::filesystem::path(labFolder) / "etc";
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  std::ofstream file(folder / name, std::ios::binary | std::ios::trunc);
  file << text << std::flush;
  return file.good();
}

}  // namespace

bool writeHostsFile(const std::string& labFolder, const std::string& hostName, const std::string& address) {
  // First, since the first line with a name wins.
  return write(labFolder, "hosts", address + " " + hostName + "\n" + content(kSystemHosts));
}

bool writeTrustedAuthorities(const std::string& labFolder, const std::string& authorityPem) {
  return write(labFolder, "ca-certificates.crt", content(kSystemAuthorities) + authorityPem);
}

}  // namespace msp::lab
