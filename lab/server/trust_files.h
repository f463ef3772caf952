#pragma once

#include <string>

/// What a simulated Mac reads in place of the system's own files, so that it finds the lab's servers and
/// believes them. A file is replaced whole; false when it cannot be written.
namespace msp::lab {

/// Writes `<labFolder>/etc/hosts`: `hostName` at `address`, then the lines of /etc/hosts.
[[nodiscard]] bool writeHostsFile(const std::string& labFolder, const std::string& hostName,
                                  const std::string& address);

/// Writes `<labFolder>/etc/ca-certificates.crt`: the authorities that the system trusts and one more.
[[nodiscard]] bool writeTrustedAuthorities(const std::string& labFolder, const std::string& authorityPem);

}  // namespace msp::lab
