#include "platform/host.h"

#include <utility>

#include "platform/host_info.h"

namespace msp {

std::unique_ptr<TaskRunner> SystemHost::makeTaskRunner() const { return std::make_unique<TaskRunner>(); }

std::optional<std::string> SystemHost::computerName() const { return msp::computerName(); }

double SystemHost::uptime() const { return systemUptime(); }

std::string SystemHost::macOSVersion() const { return msp::macOSVersion(); }

std::optional<std::string> SystemHost::fileContent(const std::string& path) const {
  auto content = readFile(path);
  if (auto* bytes = std::get_if<std::string>(&content)) return std::move(*bytes);
  return std::nullopt;
}

bool SystemHost::fileExists(const std::string& path) const { return msp::fileExists(path); }

std::variant<std::vector<std::string>, FileError> SystemHost::visibleDirectories(
    const std::string& path) const {
  return msp::visibleDirectories(path);
}

std::vector<NetworkHardware> SystemHost::networkHardware() const { return msp::networkHardware(); }

const SMC& SystemHost::smc() const { return sharedSMC(); }

const Host& systemHost() {
  // Never destroyed: background threads may still ask while the process exits.
  static const Host* const host = new SystemHost;
  return *host;
}

}  // namespace msp
