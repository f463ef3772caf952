#include "jobs/service_control.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "support/fake_host.h"
#include "support/machine_files.h"

namespace msp {
namespace {

using Lines = std::vector<std::string>;

Service service(const std::string& label, const std::string& status) { return {label, status, label}; }

TEST(ParseServices, threeColumnsAreAService) {
  struct Case {
    std::string name, output;
    std::vector<Service> expected;
  };
  const Case cases[] = {
      {"nothing", "", {}},
      {"one line is the heading", "-\t0\torg.example.agent", {}},
      {"the heading goes, whatever it says", "1\t0\ta\n-\t0\tb", {service("b", "Running")}},
      {"status 0 runs, also without a process",
       "PID\tStatus\tLabel\n-\t0\tcom.example.agent",
       {service("com.example.agent", "Running")}},
      {"a process whose last run failed is stopped", "\n123\t-9\ta", {service("a", "Stopped")}},
      {"00 is not 0", "\n1\t00\ta", {service("a", "Stopped")}},
      {"an empty status is stopped", "\n1\t\ta", {service("a", "Stopped")}},
      {"a blank separates too", "\n1 0 a", {service("a", "Running")}},
      {"a label with a blank is left out", "\n1\t0\ta b\n1\t0\tc", {service("c", "Running")}},
      {"two columns are left out", "\n1\t0", {}},
      {"two separators in a row make an empty column", "\n1\t\t0\ta", {}},
      {"an empty label", "\n1\t0\t", {service("", "Running")}},
      {"an empty line is left out", "\n\n1\t0\ta\n", {service("a", "Running")}},
      {"a label with a no-break space stays whole", "\n1\t0\ta\u00A0b", {service("a\u00A0b", "Running")}},
      {"the order stays", "\n1\t0\tb\n1\t1\ta", {service("b", "Running"), service("a", "Stopped")}},
      {"the same label twice", "\n1\t0\ta\n1\t0\ta", {service("a", "Running"), service("a", "Running")}},
  };
  for (const Case& row : cases) EXPECT_EQ(parseServices(row.output), row.expected) << row.name;
}

TEST(ParseServices, theServicesOfThreeMachines) {
  struct Case {
    std::string machine;
    std::vector<Service> expected;
  };
  const Case cases[] = {
      {"intel-ventura",
       {service("com.apple.mds", "Running"), service("com.apple.periodic-daily", "Running"),
        service("com.apple.opendirectoryd", "Running"), service("org.example.backup", "Stopped"),
        service("com.example.vpn.helper", "Stopped"), service("com.apple.smbd", "Running"),
        service("com.openssh.sshd", "Running"), service("com.apple.softwareupdated", "Stopped"),
        service("com.example.licence.check", "Stopped"), service("com.apple.WindowServer", "Running")}},
      {"m2-sonoma",
       {service("com.apple.metadata.mds", "Running"), service("com.apple.airportd", "Running"),
        service("com.apple.bluetoothd", "Running"), service("org.example.sync", "Stopped"),
        service("com.apple.security.syspolicy", "Running"), service("com.example.crashy", "Stopped"),
        service("com.example.restarted", "Stopped"),
        service("application.com.example.notes.1153.1159", "Running")}},
      {"m4-sequoia",
       {service("com.apple.logd", "Running"), service("com.apple.wifi.WiFiAgent", "Running"),
        service("com.apple.diskarbitrationd", "Running"), service("org.example.transcode", "Running"),
        service("com.example.watchfolder", "Stopped"),
        service("com.apple.mdworker.shared.05000000-0700-0000-0000-000000000000", "Stopped"),
        service("com.apple.WindowServer", "Running")}},
  };
  for (const Case& row : cases)
    EXPECT_EQ(parseServices(test::trimmedMachineOutput(row.machine, "launchctl list")), row.expected)
        << row.machine;
}

TEST(ParseServices, whateverIsPrintedEveryServiceIsWhole) {
  const std::string pieces[] = {"0", "-", "1", "a", "\t", " ", "\n", "\xFF", "\u2028", "", "é"};
  std::mt19937 random(77);
  int found = 0;
  for (int round = 0; round < 3000; ++round) {
    std::string output;
    for (auto count = random() % 60; count > 0; --count) output += pieces[random() % std::size(pieces)];
    for (const Service& one : parseServices(output)) {
      ++found;
      ASSERT_EQ(one.name, one.service);
      ASSERT_TRUE(one.status == "Running" || one.status == "Stopped");
      ASSERT_EQ(one.name.find_first_of(" \t\n"), std::string::npos) << output;
    }
  }
  EXPECT_GT(found, 100);
}

TEST(ParseServices, wellFormedLinesComeBackAsTheyWere) {
  std::mt19937 random(78);
  std::string output = "PID\tStatus\tLabel\n";
  std::vector<Service> expected;
  for (int i = 0; i < 500; ++i) {
    const auto status = static_cast<int>(random() % 5) - 2;
    const std::string label = "com.example." + std::to_string(random());
    const std::string pid = random() % 2 == 0 ? "-" : std::to_string(random() % 99999);
    output += pid + "\t" + std::to_string(status) + "\t" + label + "\n";
    expected.push_back(service(label, status == 0 ? "Running" : "Stopped"));
  }
  EXPECT_EQ(parseServices(output), expected);
}

TEST(FindServiceFile, theFourFoldersAreSearchedInOrder) {
  const Lines inOrder = {
      "/System/Library/LaunchDaemons/org.example.agent.plist",
      "/System/Library/LaunchAgents/org.example.agent.plist",
      "/Library/LaunchDaemons/org.example.agent.plist",
      "/Library/LaunchAgents/org.example.agent.plist",
  };
  test::FakeHost host;
  EXPECT_EQ(findServiceFile("org.example.agent", host), std::nullopt);
  for (auto path = inOrder.rbegin(); path != inOrder.rend(); ++path) {
    host.files[*path] = "";
    EXPECT_EQ(findServiceFile("org.example.agent", host), *path);
    EXPECT_EQ(findServiceFile("org.example.agent.plist", host), *path) << "no second suffix";
  }
  EXPECT_EQ(findServiceFile("org.example.agent.plist.plist", host), std::nullopt);
}

TEST(ServiceControl, eachOperationIsOneCommandLineAndSilenceIsOK) {
  test::FakeHost host;
  host.files["/Library/LaunchDaemons/a.plist"] = "";
  EXPECT_EQ(startService("a", host, host.runner()), "OK");
  EXPECT_EQ(stopService("a.plist", host.runner()), "OK");
  EXPECT_EQ(restartService("a b", host.runner()), "OK");
  EXPECT_EQ(host.runner().commandLines(),
            (Lines{"launchctl bootstrap system /Library/LaunchDaemons/a.plist",
                   "launchctl bootout system/a.plist", "launchctl kickstart -k 'system/a b'"}));
}

TEST(ServiceControl, whatTheToolPrintsIsTheOutcome) {
  test::FakeHost host;
  host.files["/Library/LaunchDaemons/a.plist"] = "";
  host.runner().answer("launchctl bootstrap system /Library/LaunchDaemons/a.plist", "Bootstrap failed: 5");
  host.runner().answer("launchctl bootout system/a", "Boot-out failed: 3");
  host.runner().answer("launchctl kickstart -k system/a", "no");
  EXPECT_EQ(startService("a", host, host.runner()), "Bootstrap failed: 5");
  EXPECT_EQ(stopService("a", host.runner()), "Boot-out failed: 3");
  EXPECT_EQ(restartService("a", host.runner()), "no");
}

TEST(ServiceControl, aServiceWithoutFileIsNotStarted) {
  test::FakeHost host;
  EXPECT_EQ(startService("a", host, host.runner()), "Service file not found");
  EXPECT_EQ(host.runner().commandLines(), Lines{});
}

}  // namespace
}  // namespace msp
