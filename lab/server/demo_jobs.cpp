#include "server/demo_jobs.h"

namespace msp::lab {

std::vector<JobOrder> oneJobOfEachType(const std::string& serverUrl) {
  return {
      {"download_file_from_url",
       {{"url", serverUrl + "lab/received"}, {"file_name", "/Users/Shared/received.json"}}},
      {"execute_command", {{"command", "sw_vers"}}},
      {"get_processes", nullptr},
      {"kill_process", {{"pid", "5120"}}},
      {"get_storage_devices", nullptr},
      {"get_network_interfaces", nullptr},
      {"get_services", nullptr},
      {"stop_service", {{"service_name", "com.example.vpn.helper"}}},
      {"start_service", {{"service_name", "com.example.vpn.helper"}}},
      {"restart_service", {{"service_name", "org.example.backup"}}},
      {"get_sensors", nullptr},
      {"create_local_user_account", {{"username", "Visiting Auditor"}, {"password", "not a secret"}}},
      {"modify_local_user_account", {{"username", "Visiting_Auditor"}, {"mode", "add"}, {"group", "admin"}}},
      {"get_local_users", nullptr},
      {"restart", nullptr},
  };
}

}  // namespace msp::lab
