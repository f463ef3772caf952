#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "platform/network_hardware.h"
#include "scenarios/scenario.h"
#include "server/protocol.h"
#include "support/files.h"
#include "support/loopback_server.h"

namespace msp::test {
namespace {

/// A result with one list more.
Json listResult(std::int64_t id, const std::string& key, const Json& list) {
  return merged(plainResult(id, "", 1), {{key, list}});
}

Json service(const std::string& label, const std::string& status) {
  return {{"name", label}, {"status", status}, {"service", label}};
}

Json volume(const std::string& node, const std::string& mountPoint, const std::string& type,
            std::int64_t size, std::int64_t free) {
  return {{"device", "/dev/" + node},
          {"mount_point", mountPoint},
          {"file_system", type},
          {"options", "ro,local"},
          {"size", size},
          {"free", free}};
}

Json account(const std::string& name, const std::string& sid, const std::string& fullName,
             const std::string& group) {
  return {{"name", name},
          {"sid", sid},
          {"full_name", fullName},
          {"enabled", true},
          {"group_members", Json::array({{{"sid", group}}})}};
}

const Json kProcesses = {
    process("WindowServer", 152, 9.1, 140224),
    process("mds", 91, 1.2, 22044),
    process("Finder", 312, 0.7, 88012),
    process("launchd", 1, 0.3, 14480),
    process("opendirectoryd", 118, 0.1, 6120),
    process("sshd", 5120, 0, 1880),
    process("-zsh", 5122, 0, 1512),
    process("(mdworker)", 5200, 0, 0),
    process("loginwindow", 301, 0, 12044),
};

const Json kVolumes = {
    volume("disk1s1", "/System/Volumes/Data", "apfs", 499963174912, 308453793792),
    volume("disk1s2", "/System/Volumes/Preboot", "apfs", 499963174912, 308453793792),
    volume("disk1s4s1", "/", "apfs", 499963174912, 308453793792),
    volume("disk1s6", "/System/Volumes/VM", "apfs", 499963174912, 308453793792),
    volume("disk2s2", "/Volumes/Backup", "hfs", 799861198848, 402118844416),
};

const Json kServices = {
    service("com.apple.mds", "Running"),
    service("com.apple.periodic-daily", "Running"),
    service("com.apple.opendirectoryd", "Running"),
    service("org.example.backup", "Stopped"),
    service("com.example.vpn.helper", "Stopped"),
    service("com.apple.smbd", "Running"),
    service("com.openssh.sshd", "Running"),
    service("com.apple.softwareupdated", "Stopped"),
    service("com.example.licence.check", "Stopped"),
    service("com.apple.WindowServer", "Running"),
};

const Json kSensors = {
    {{"hardware_type", "CPU"}, {"type", "temperature"}, {"value", 48.25}, {"name", "CPU Package"}},
    {{"hardware_type", "GpuApple"}, {"type", "temperature"}, {"value", 41.0}, {"name", "GPU Core"}},
};

const Json kGroups = {{{"name", "admin"}, {"sid", "80"}}, {{"name", "staff"}, {"sid", "20"}}};

/// The interfaces are those of the machine that runs the test: the simulated Mac's tools know none of them.
Json networkResult(std::int64_t id) {
  Json interfaces = Json::array();
  for (const NetworkHardware& hardware : networkHardware()) {
    interfaces.push_back({{"bytes_received", 0},
                          {"bytes_sent", 0},
                          {"ip_addresses", Json::array()},
                          {"dhcp_addresses", Json::array()},
                          {"gateway_addresses", Json::array()},
                          {"dns_addresses", Json::array()},
                          {"link", 0},
                          {"mac_address", hardware.address.value_or("")},
                          {"name", hardware.name.value_or("")},
                          {"speed", 0},
                          {"type", hardware.kind.value_or("")}});
  }
  if (interfaces.empty()) return plainResult(id, "No network interfaces detected.", 0);
  return listResult(id, "network_interfaces", interfaces);
}

Json usersResult(std::int64_t id, const Json& users) {
  return merged(listResult(id, "local_users", users), {{"local_groups", kGroups}});
}

class EveryJob : public Scenario {
 protected:
  /// An agent that gets all the jobs in the answer to its first check-in and sends their results until there
  /// are new jobs.
  static void start(Lab& lab) {
    lab.storeIdentity();
    lab.succeedOnlyWithJobs();
    lab.server().setCheckInInterval(0.5);
    lab.startAgent();
  }
};

TEST_F(EveryJob, allFifteenTypesInOneAnswer) {
  LoopbackServer files([](ServerConnection& connection) {
    while (connection.readRequest()) connection.write(httpAnswer(200, "downloaded bytes"));
  });
  Lab lab("intel-ventura");
  const std::string temporary = "temp-2022";
  const auto before = lab.mac().homeFolders();
  ASSERT_TRUE(std::count(before.begin(), before.end(), temporary) == 1);

  std::vector<std::pair<std::int64_t, Json>> expected;
  const auto order = [&](const std::string& type, const Json& arguments, const auto& result) {
    const std::int64_t id = lab.server().queueJob(type, arguments);
    expected.emplace_back(id, result(id));
  };
  const auto says = [](const std::string& message) {
    return [message](std::int64_t id) { return plainResult(id, message, 1); };
  };
  const auto lists = [](const std::string& key, const Json& list) {
    return [key, list](std::int64_t id) { return listResult(id, key, list); };
  };
  order("download_file_from_url", {{"url", files.url("/tool")}, {"file_name", "/Users/Shared/tool"}},
        says("File downloaded to /Users/Shared/tool"));
  order("execute_command", {{"command", "sw_vers"}},
        says("ProductName:\t\tmacOS\nProductVersion:\t\t13.6.9\nBuildVersion:\t\t22G830"));
  order("get_processes", nullptr, lists("processes", kProcesses));
  order("kill_process", {{"pid", "5120"}}, says(""));
  order("get_storage_devices", nullptr, lists("storage_devices", kVolumes));
  order("get_network_interfaces", nullptr, networkResult);
  order("get_services", nullptr, lists("services", kServices));
  order("stop_service", {{"service_name", "com.example.vpn.helper"}},
        says("Service com.example.vpn.helper stopped."));
  order("start_service", {{"service_name", "com.example.vpn.helper"}},
        says("Service com.example.vpn.helper started."));
  order("restart_service", {{"service_name", "org.example.backup"}},
        says("Service org.example.backup restarted."));
  order("get_sensors", nullptr, lists("sensors", kSensors));
  order("create_local_user_account", {{"username", "Visiting Auditor"}, {"password", "pass word"}}, says(""));
  order("modify_local_user_account", {{"username", "Visiting_Auditor"}, {"mode", "add"}, {"group", "admin"}},
        says("Success"));
  order("get_local_users", nullptr, [](std::int64_t id) {
    return usersResult(
        id, {account("frontdesk", "502", "Front Desk", "20"), account("itadmin", "501", "IT", "80"),
             account("Visiting_Auditor", "503", "Visiting_Auditor", "80")});
  });
  order("restart", nullptr, says("Restarting"));
  start(lab);

  for (const auto& [id, result] : expected) EXPECT_EQ(lab.result(id), result);

  EXPECT_EQ(contentOf(lab.mac().users() / "Shared" / "tool"), "downloaded bytes");
  EXPECT_FALSE(lab.mac().isRunning(5120));
  EXPECT_TRUE(lab.mac().isAdmin("Visiting_Auditor"));
  EXPECT_EQ(lab.mac().password("Visiting_Auditor"), "pass word");
  EXPECT_EQ(lab.mac().homeFolders(),
            (std::vector<std::string>{"Shared", "Visiting_Auditor", "frontdesk", "itadmin"}));
  ASSERT_EQ(lab.mac().restarts().size(), 1U);

  // What the jobs changed is what later jobs see.
  enum : std::int64_t { processes = 2001, services, removal, users };
  lab.server().queueRawJobs({lab::makeJob(processes, "get_processes", nullptr),
                             lab::makeJob(services, "get_services", nullptr),
                             lab::makeJob(removal, "modify_local_user_account",
                                          {{"username", "Visiting_Auditor"}, {"mode", "delete"}}),
                             lab::makeJob(users, "get_local_users", nullptr)});
  Json left = kProcesses;
  left.erase(5);
  EXPECT_EQ(lab.result(processes), listResult(processes, "processes", left));
  const Json listed = lab.result(services)["services"];
  EXPECT_EQ(std::count(listed.begin(), listed.end(), service("com.example.vpn.helper", "Running")), 1);
  EXPECT_EQ(std::count(listed.begin(), listed.end(), service("org.example.backup", "Running")), 1);
  EXPECT_EQ(listed.size(), kServices.size());
  EXPECT_EQ(lab.result(removal), plainResult(removal, "Success", 1));
  EXPECT_EQ(lab.result(users), usersResult(users, {account("frontdesk", "502", "Front Desk", "20"),
                                                   account("itadmin", "501", "IT", "80")}));
  EXPECT_EQ(lab.mac().homeFolders(), (std::vector<std::string>{"Shared", "frontdesk", "itadmin"}));
}

/// How a job's arguments can be of no use, and how many of them there are.
enum BadArguments { kNone, kNotJson, kEmpty, kWrongTypes, kBadArguments };

TEST_F(EveryJob, everyTypeWithArgumentsOfNoUse) {
  struct Case {
    std::string type;
    Json wrongTypes;
    // The results' messages: without arguments or with such that are not JSON, with an empty object, with
    // values of the wrong type. None where the job takes no arguments.
    std::vector<std::string> messages;
  };
  const std::string unparsed = "Error - unable to parse command to execute";
  const Case cases[] = {
      {"execute_command",
       {{"command", 5}},
       {unparsed, "Error - unable to find command to execute", "Error - unable to find command to execute"}},
      {"kill_process",
       {{"pid", 1}},
       {unparsed, "Error - unable to extract process ID.", "Error - unable to extract process ID."}},
      {"download_file_from_url",
       {{"url", 1}, {"file_name", true}, {"replace_existing_file", 1}},
       {"Download Error: Invalid commands", "Download Error: Invalid commands",
        "Download Error: Invalid commands"}},
      {"create_local_user_account",
       {{"username", 1}, {"password", 2}, {"is_admin", 1}},
       {unparsed, "Error - unable to extract username & password.",
        "Error - unable to extract username & password."}},
      {"restart_service",
       {{"service_name", nullptr}},
       {"Switch Services Error: Invalid commands", "Switch Services Error: Invalid commands",
        "Switch Services Error: Invalid commands"}},
      {"start_service",
       {{"service_name", {1}}},
       {"Switch Services Error: Invalid commands", "Switch Services Error: Invalid commands",
        "Switch Services Error: Invalid commands"}},
      {"stop_service",
       {{"service_name", {{"a", 1}}}},
       {"Switch Services Error: Invalid commands", "Switch Services Error: Invalid commands",
        "Switch Services Error: Invalid commands"}},
      {"modify_local_user_account",
       {{"username", 1}, {"mode", 2}, {"group", 3}, {"password", 4}, {"new_password_on_login", 1}},
       {"Error - unable to parse modify_local_user_account",
        "Error - unable to find username for modify_local_user_account",
        "Error - unable to find username for modify_local_user_account"}},
      {"get_processes", {{"any", 1}}, {}},
      {"get_storage_devices", {{"any", 1}}, {}},
      {"get_network_interfaces", {{"any", 1}}, {}},
      {"get_services", {{"any", 1}}, {}},
      {"get_sensors", {{"any", 1}}, {}},
      {"get_local_users", {{"any", 1}}, {}},
      {"restart", {{"any", 1}}, {}},
  };
  Lab lab("intel-ventura");
  std::int64_t id = 1000;
  for (const Case& row : cases) {
    for (int bad = kNone; bad < kBadArguments; ++bad) {
      Json job = {{"id", std::to_string(id++)}, {"type", row.type}};
      if (bad == kNotJson) job["arguments"] = "{\"command\": ";
      if (bad == kEmpty) job["arguments"] = "{}";
      if (bad == kWrongTypes) job["arguments"] = row.wrongTypes.dump();
      lab.server().queueRawJob(job);
    }
  }
  start(lab);

  id = 1000;
  for (const Case& row : cases) {
    for (int bad = kNone; bad < kBadArguments; ++bad, ++id) {
      SCOPED_TRACE(row.type + ", " + std::to_string(bad));
      const Json result = lab.result(id);
      if (!row.messages.empty()) {
        EXPECT_EQ(result, plainResult(id, row.messages[static_cast<std::size_t>(std::max(bad - 1, 0))], 0));
      } else if (row.type == "get_processes") {
        EXPECT_EQ(result, listResult(id, "processes", kProcesses));
      } else if (row.type == "get_storage_devices") {
        EXPECT_EQ(result, listResult(id, "storage_devices", kVolumes));
      } else if (row.type == "get_network_interfaces") {
        EXPECT_EQ(result, networkResult(id));
      } else if (row.type == "get_services") {
        EXPECT_EQ(result, listResult(id, "services", kServices));
      } else if (row.type == "get_sensors") {
        EXPECT_EQ(result, listResult(id, "sensors", kSensors));
      } else if (row.type == "get_local_users") {
        EXPECT_EQ(result, usersResult(id, {account("frontdesk", "502", "Front Desk", "20"),
                                           account("itadmin", "501", "IT", "80")}));
      } else {
        EXPECT_EQ(result, plainResult(id, "Restarting", 1));
      }
    }
  }
  EXPECT_EQ(lab.mac().restarts().size(), 4U);
}

TEST_F(EveryJob, toolsThatFailOrPrintGarbageGetTheirDescribedOutcome) {
  Lab lab("intel-ventura");
  auto& server = lab.server();
  const auto homes = lab.mac().homeFolders();
  lab.mac().failTool("dscl", 70, "dscl: no directory\n");
  lab.mac().garbageTool("launchctl", "\xFF\xFE garbage");
  lab.mac().garbageTool("powermetrics", std::string("\0\1\2 CPU die temperature: \n", 26));
  lab.mac().garbageTool("diskutil", "disk0\n: : :\n");
  lab.mac().failTool("kill", 1, "kill: 5120: No such process\n");
  lab.mac().slowTool("pwpolicy", 20);

  const auto users = server.queueJob("get_local_users");
  const auto services = server.queueJob("get_services");
  const auto stop = server.queueJob("stop_service", {{"service_name", "com.example.vpn.helper"}});
  const auto sensors = server.queueJob("get_sensors");
  const auto disks = server.queueJob("get_storage_devices");
  const auto kill = server.queueJob("kill_process", {{"pid", "5120"}});
  const auto disable =
      server.queueJob("modify_local_user_account", {{"username", "frontdesk"}, {"mode", "disable"}});
  start(lab);

  EXPECT_EQ(lab.result(users), plainResult(users, "No users found.", 0));
  EXPECT_EQ(lab.result(services), plainResult(services, "No services detected.", 0));
  EXPECT_EQ(lab.result(stop), plainResult(stop, "Service com.example.vpn.helper stopped.", 1))
      << "what is no text counts as nothing printed";
  EXPECT_EQ(lab.result(sensors), plainResult(sensors, "No temperature sensors detected.", 0));
  EXPECT_EQ(lab.result(disks), plainResult(disks, "No storage devices detected.", 0));
  EXPECT_EQ(lab.result(kill), plainResult(kill, "", 1));
  EXPECT_EQ(lab.result(disable), plainResult(disable, "Success", 1));
  EXPECT_FALSE(lab.mac().isEnabled("frontdesk"));
  EXPECT_EQ(lab.mac().homeFolders(), homes) << "nothing is removed when not one user was listed";
}

TEST_F(EveryJob, aJobThatHangsHoldsUpItsOwnBatchOnly) {
  Lab lab("intel-ventura");
  lab.mac().holdTool("diskutil");
  const auto hanging = lab.server().queueJob("get_storage_devices");
  const auto behind = lab.server().queueJob("get_sensors");
  start(lab);
  lab.checkIn(2);  // so the first was answered, and what follows comes in a batch of its own
  const auto later = lab.server().queueJob("get_services");
  EXPECT_EQ(lab.result(later), listResult(later, "services", kServices));
  lab.mac().restoreTool("diskutil");
  EXPECT_EQ(lab.result(hanging), listResult(hanging, "storage_devices", kVolumes));
  EXPECT_EQ(lab.result(behind), listResult(behind, "sensors", kSensors));
}

}  // namespace
}  // namespace msp::test
