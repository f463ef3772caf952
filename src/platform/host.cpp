#include "platform/host.h"

#include <utility>
#include <variant>

#include "platform/file_system.h"
#include "platform/host_info.h"

namespace msp {
namespace {

class SystemHost : public Host {
 public:
  [[nodiscard]] std::unique_ptr<TaskRunner> makeTaskRunner() const override {
    return std::make_unique<TaskRunner>();
  }
  [[nodiscard]] std::optional<std::string> computerName() const override { return msp::computerName(); }
  [[nodiscard]] double uptime() const override { return systemUptime(); }
  [[nodiscard]] std::string macOSVersion() const override { return msp::macOSVersion(); }
  [[nodiscard]] std::optional<std::string> fileContent(const std::string& path) const override {
    auto content = readFile(path);
    if (auto* bytes = std::get_if<std::string>(&content)) return std::move(*bytes);
    return std::nullopt;
  }
  [[nodiscard]] bool fileExists(const std::string& path) const override { return msp::fileExists(path); }
  [[nodiscard]] std::variant<std::vector<std::string>, FileError> visibleDirectories(
      const std::string& path) const override {
    return msp::visibleDirectories(path);
  }
};

}  // namespace

const Host& systemHost() {
  // Never destroyed: background threads may still ask while the process exits.
  static const Host* const host = new SystemHost;
  return *host;
}

}  // namespace msp
