#pragma once

#include <functional>
#include <string>

#include "jobs/job.h"
#include "jobs/job_result.h"
#include "platform/host.h"
#include "platform/http_client.h"

namespace msp {

/// Every job handler, in the order of the dispatch table: job in, result out. Has no state of its own and
/// is safe on any thread; a handler blocks until its tools have ended.
class JobsManager {
 public:
  /// `host` and `http` must outlive the manager, and `http` every download.
  JobsManager(const Host& host, HttpClient& http) : host_(&host), http_(&http) {}

  /// "execute_command": runs the words of a text. What it prints is the message, and success when there is
  /// any.
  [[nodiscard]] JobResult executeCommand(const Job& job) const;

  /// "get_processes": every process whose name is one word, by falling CPU use.
  [[nodiscard]] JobResult listProcesses(const Job& job) const;

  /// "kill_process": asks a process to end.
  [[nodiscard]] JobResult killProcess(const Job& job) const;

  /// "download_file_from_url": starts a download and returns at once. The completion runs exactly once: here,
  /// when there is nothing to download, or later on another thread.
  void downloadFile(const Job& job, std::function<void(JobResult)> completion) const;

  /// "restart": in one minute.
  [[nodiscard]] JobResult restart(const Job& job) const;

  /// "create_local_user_account"
  [[nodiscard]] JobResult createLocalUserAccount(const Job& job) const;

  /// "get_storage_devices": every mounted volume.
  [[nodiscard]] JobResult listStorageDevices(const Job& job) const;

  /// "get_network_interfaces"
  [[nodiscard]] JobResult listNetworkInterfaces(const Job& job) const;

  /// "get_services": every launchd job whose label has no blank.
  [[nodiscard]] JobResult listServices(const Job& job) const;

  /// "restart_service", "start_service", "stop_service": the mode is "restart", "start" or "stop".
  [[nodiscard]] JobResult switchService(const Job& job, const std::string& mode) const;

  /// "get_sensors": the temperatures of processor and graphics.
  [[nodiscard]] JobResult readSensors(const Job& job) const;

  /// "get_local_users": the local accounts and the groups that matter. Removes the home folders that belong
  /// to none of these accounts.
  [[nodiscard]] JobResult listLocalUsers(const Job& job) const;

  /// "modify_local_user_account": password, enabled or not, administrator or not, deletion.
  [[nodiscard]] JobResult modifyLocalUserAccount(const Job& job) const;

 private:
  const Host* host_;
  HttpClient* http_;
};

}  // namespace msp
