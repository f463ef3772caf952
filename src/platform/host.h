#pragma once

#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/file_system.h"
#include "platform/network_hardware.h"
#include "platform/smc.h"
#include "platform/task_runner.h"

namespace msp {

/// The machine as one object: what collectors and jobs may ask of it. Tests put a made-up machine here.
/// Safe on any thread.
class Host {
 public:
  virtual ~Host() = default;

  /// A fresh runner, with nothing cached.
  [[nodiscard]] virtual std::unique_ptr<TaskRunner> makeTaskRunner() const = 0;

  /// The user-visible computer name; nothing when there is none.
  [[nodiscard]] virtual std::optional<std::string> computerName() const = 0;

  /// Seconds since boot, with fractions.
  [[nodiscard]] virtual double uptime() const = 0;

  /// The version of macOS, for instance "14.5"; "" when this is another system or it does not say.
  [[nodiscard]] virtual std::string macOSVersion() const = 0;

  /// The whole content of a file; nothing when it cannot be read.
  [[nodiscard]] virtual std::optional<std::string> fileContent(const std::string& path) const = 0;

  /// Whether something exists at the path, symbolic links followed.
  [[nodiscard]] virtual bool fileExists(const std::string& path) const = 0;

  /// Names of the directories in a directory: hidden ones, symbolic links and whatever cannot be looked at
  /// are left out. In no particular order.
  [[nodiscard]] virtual std::variant<std::vector<std::string>, FileError> visibleDirectories(
      const std::string& path) const = 0;

  /// Every network interface in the system's own order; see platform/network_hardware.h.
  [[nodiscard]] virtual std::vector<NetworkHardware> networkHardware() const = 0;

  /// The System Management Controller, opened at the first call.
  [[nodiscard]] virtual const SMC& smc() const = 0;
};

/// The machine this process runs on.
class SystemHost : public Host {
 public:
  [[nodiscard]] std::unique_ptr<TaskRunner> makeTaskRunner() const override;
  [[nodiscard]] std::optional<std::string> computerName() const override;
  [[nodiscard]] double uptime() const override;
  [[nodiscard]] std::string macOSVersion() const override;
  [[nodiscard]] std::optional<std::string> fileContent(const std::string& path) const override;
  [[nodiscard]] bool fileExists(const std::string& path) const override;
  [[nodiscard]] std::variant<std::vector<std::string>, FileError> visibleDirectories(
      const std::string& path) const override;
  [[nodiscard]] std::vector<NetworkHardware> networkHardware() const override;
  [[nodiscard]] const SMC& smc() const override;
};

/// The one that lives as long as the process.
const Host& systemHost();

}  // namespace msp
