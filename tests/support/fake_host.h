#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/host.h"
#include "support/fake_task_runner.h"
#include "support/simulated_controller.h"

namespace msp::test {

/// A made-up machine. All its runners share the one FakeTaskRunner, so that a test can prepare and inspect
/// it. Set it up before other threads use it.
class FakeHost : public Host {
 public:
  FakeTaskRunner& runner() const { return *runner_; }
  std::optional<std::string> name = "Ana's Mac";
  double uptimeSeconds = 3600.5;
  std::map<std::string, std::string> files;
  /// The directories in each directory that can be listed.
  std::map<std::string, std::vector<std::string>> directories;
  std::string systemVersion = "14.5";
  std::vector<NetworkHardware> interfaces;
  /// How often somebody asked for a runner of his own.
  [[nodiscard]] int runnersMade() const { return runnersMade_; }
  SimulatedController& controller() const { return *controller_; }

  [[nodiscard]] std::unique_ptr<TaskRunner> makeTaskRunner() const override {
    ++runnersMade_;
    return std::make_unique<Shared>(*runner_);
  }
  [[nodiscard]] std::optional<std::string> computerName() const override { return name; }
  [[nodiscard]] double uptime() const override { return uptimeSeconds; }
  [[nodiscard]] std::optional<std::string> fileContent(const std::string& path) const override {
    const auto found = files.find(path);
    return found == files.end() ? std::nullopt : std::optional(found->second);
  }
  [[nodiscard]] std::string macOSVersion() const override { return systemVersion; }
  [[nodiscard]] bool fileExists(const std::string& path) const override { return files.count(path) > 0; }
  [[nodiscard]] std::variant<std::vector<std::string>, FileError> visibleDirectories(
      const std::string& path) const override {
    const auto found = directories.find(path);
    if (found == directories.end()) return FileError{"No such file or directory"};
    return found->second;
  }
  [[nodiscard]] std::vector<NetworkHardware> networkHardware() const override { return interfaces; }
  [[nodiscard]] const SMC& smc() const override {
    std::call_once(smcMade_, [this] {
      smc_ = std::make_unique<SMC>(std::make_unique<SimulatedConnection>(*controller_));
    });
    return *smc_;
  }

 private:
  class Shared : public TaskRunner {
   public:
    explicit Shared(FakeTaskRunner& runner) : runner_(runner) {}
    std::string runCommand(const std::string& command, const std::vector<std::string>& arguments) override {
      return runner_.runCommand(command, arguments);
    }
    std::string runCommandStreaming(const std::string& command,
                                    const std::vector<std::string>& arguments) override {
      return runner_.runCommandStreaming(command, arguments);
    }

   private:
    FakeTaskRunner& runner_;
  };

  std::unique_ptr<SimulatedController> controller_ = std::make_unique<SimulatedController>();
  mutable std::atomic<int> runnersMade_ = 0;
  mutable std::once_flag smcMade_;
  mutable std::unique_ptr<SMC> smc_;
  std::unique_ptr<FakeTaskRunner> runner_ = std::make_unique<FakeTaskRunner>();
};

}  // namespace msp::test
