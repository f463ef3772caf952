#include <gtest/gtest.h>

#include "jobs/jobs_manager.h"
#include "support/captured_log.h"
#include "support/fake_host.h"
#include "support/fake_http_client.h"

namespace msp {
namespace {

class InventoryJobs : public testing::Test {
 protected:
  test::FakeHost host_;
  test::FakeHttpClient http_;
  test::CapturedLog log_;
  JobsManager jobs_{host_, http_};
  const Job job_{{"id", "7"}, {"type", "any"}};
};

TEST_F(InventoryJobs, mountedVolumesAreAnswered) {
  host_.runner().answer("diskutil list", "0: x disk0");
  host_.runner().answer("diskutil info disk0", "Mounted: Yes");
  const JobResult expected{.id = 7,
                           .message = "",
                           .success = 1,
                           .storage_devices = {{{"unknown", "unknown", "unknown", "ro,local", 0, 0}}}};
  EXPECT_EQ(jobs_.listStorageDevices(job_), expected);
}

TEST_F(InventoryJobs, withoutVolumesTheJobFails) {
  const JobResult expected{.id = 7, .message = "No storage devices detected.", .success = 0};
  EXPECT_EQ(jobs_.listStorageDevices(job_), expected);
  EXPECT_TRUE(log_.messages().empty());
}

TEST_F(InventoryJobs, interfacesAreAnswered) {
  host_.interfaces = {{"en0", "aa:bb", "Ethernet"}};
  NetworkInterface interface;
  interface.name = "en0";
  interface.mac_address = "aa:bb";
  interface.type = "Ethernet";
  const JobResult expected{.id = 7, .message = "", .success = 1, .network_interfaces = {{interface}}};
  EXPECT_EQ(jobs_.listNetworkInterfaces(job_), expected);
}

TEST_F(InventoryJobs, withoutInterfacesTheJobFails) {
  const JobResult expected{.id = 7, .message = "No network interfaces detected.", .success = 0};
  EXPECT_EQ(jobs_.listNetworkInterfaces(job_), expected);
  EXPECT_TRUE(log_.messages().empty());
}

}  // namespace
}  // namespace msp
