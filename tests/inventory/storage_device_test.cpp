#include "inventory/storage_device.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace msp {
namespace {

TEST(StorageDevice, everyFieldIsEncodedInItsOrder) {
  const StorageDevice device{.device = "/dev/disk2s2",
                             .mount_point = "/Volumes/Back/Up \"2\"",
                             .file_system = "hfs",
                             .options = "rw,local",
                             .size = 494384795648,
                             .free = 1};
  EXPECT_EQ(Json(device).dump(),
            R"({"device":"/dev/disk2s2","mount_point":"/Volumes/Back/Up \"2\"","file_system":"hfs",)"
            R"("options":"rw,local","size":494384795648,"free":1})");
}

}  // namespace
}  // namespace msp
