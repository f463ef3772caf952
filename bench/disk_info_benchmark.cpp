#include <benchmark/benchmark.h>

#include <string>

#include "inventory/storage_inventory.h"

namespace msp {
namespace {

constexpr int kVolumes = 200;

/// One volume as diskutil(8) prints it.
constexpr const char* kVolume = R"(   Device Identifier:         disk1s1
   Device Node:               /dev/disk1s1
   Whole:                     No
   Part of Whole:             disk1

   Volume Name:               Macintosh HD - Data
   Mounted:                   Yes
   Mount Point:               /System/Volumes/Data

   Partition Type:            41504653-0000-11AA-AA11-00306543ECAC
   File System Personality:   APFS
   Type (Bundle):             apfs
   Name (User Visible):       APFS
   Owners:                    Enabled

   OS Can Be Installed:       Yes
   Booter Disk:               disk1s2
   Recovery Disk:             disk1s3
   Media Type:                Generic
   Protocol:                  SATA
   SMART Status:              Verified
   Volume UUID:               11111111-AAAA-4BBB-8CCC-000000000001
   Disk / Partition UUID:     11111111-AAAA-4BBB-8CCC-000000000001

   Disk Size:                 500.0 GB (499963174912 Bytes) (exactly 976490576 512-Byte-Units)
   Device Block Size:         4096 Bytes

   Volume Used Space:         176.1 GB (176112844800 Bytes) (exactly 343970400 512-Byte-Units)
   Container Total Space:     500.0 GB (499963174912 Bytes) (exactly 976490576 512-Byte-Units)
   Container Free Space:      308.5 GB (308453793792 Bytes) (exactly 602448816 512-Byte-Units)
   Allocation Block Size:     4096 Bytes

   Media OS Use Only:         No
   Media Read-Only:           No
   Volume Read-Only:          No

   Device Location:           Internal
   Removable Media:           Fixed

   Solid State:               Yes
   Hardware AES Support:      No

   This disk is an APFS Volume.  APFS Information:
   APFS Container:            disk1
   APFS Physical Store:       disk0s2
   Fusion Drive:              No
   APFS Volume Group:         5E8C7175-8FD9-481F-943C-4E11DC990001
   Encrypted:                 No
   FileVault:                 No
   Sealed:                    No
   Locked:                    No

)";

/// Goal: at most 5 ms.
void readDiskInfos(benchmark::State& state) {
  const std::string volume = kVolume;
  if (!storageDevice(parseDiskInfo(volume))) state.SkipWithError("the volume is not mounted");
  for (auto _ : state) {
    for (int i = 0; i < kVolumes; ++i) benchmark::DoNotOptimize(storageDevice(parseDiskInfo(volume)));
  }
}
BENCHMARK(readDiskInfos)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace msp
