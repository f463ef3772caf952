#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "server/demo_jobs.h"

namespace msp::lab {
namespace {

TEST(DemoJobs, areOneOfEachTypeAndEndWithTheRestart) {
  std::vector<std::string> types;
  for (const JobOrder& order : oneJobOfEachType("http://127.0.0.1:8080/")) types.push_back(order.type);
  EXPECT_EQ(types.back(), "restart");
  std::sort(types.begin(), types.end());
  EXPECT_EQ(types, (std::vector<std::string>{
                       "create_local_user_account", "download_file_from_url", "execute_command",
                       "get_local_users", "get_network_interfaces", "get_processes", "get_sensors",
                       "get_services", "get_storage_devices", "kill_process", "modify_local_user_account",
                       "restart", "restart_service", "start_service", "stop_service"}));
}

TEST(DemoJobs, downloadFromTheServerItself) {
  const auto jobs = oneJobOfEachType("http://127.0.0.1:8080/");
  EXPECT_EQ(jobs.front().arguments["url"], "http://127.0.0.1:8080/lab/received");
}

}  // namespace
}  // namespace msp::lab
