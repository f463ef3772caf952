#include "inventory/storage_inventory.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "support/fake_host.h"
#include "support/machine_files.h"

namespace msp {
namespace {

using Lines = std::vector<std::string>;

TEST(ListDiskIdentifiers, areTheLastWordsThatBeginWithDisk) {
  struct Case {
    std::string name, output;
    Lines expected;
  };
  const Case cases[] = {
      {"nothing", "", {}},
      {"whole disks and partitions",
       "0: scheme *500.3 GB disk0\n1: EFI EFI 314.6 MB disk0s1",
       {"disk0", "disk0s1"}},
      {"a heading ends in no disk", "/dev/disk0 (internal, physical):\n #: TYPE NAME SIZE IDENTIFIER", {}},
      {"a physical store is one too", "     Physical Store disk0s2", {"disk0s2"}},
      {"a disk twice is twice", "a disk1\nb disk1", {"disk1", "disk1"}},
      {"any word that begins so", "a diskette\na Disk1\na xdisk1", {"diskette"}},
      {"blanks and tabs behind it", "a disk1 \t ", {"disk1"}},
      {"a word alone", "disk7", {"disk7"}},
      {"free space", "(free space) 200.0 GB -", {}},
      {"lines without words", "\n \n\t\n", {}},
  };
  for (const Case& row : cases) {
    test::FakeTaskRunner runner;
    runner.answer("diskutil list", row.output);
    EXPECT_EQ(listDiskIdentifiers(runner), row.expected) << row.name;
    EXPECT_EQ(runner.commandLines(), Lines{"streaming diskutil list"});
  }
}

TEST(ParseDiskInfo, aLineOfTwoPiecesIsAKeyAndItsValue) {
  struct Case {
    std::string name, output;
    DiskInfo expected;
  };
  const Case cases[] = {
      {"nothing", "", {}},
      {"a key and a value", "   Mounted:      Yes\n", {{"Mounted", "Yes"}}},
      {"blanks and tabs around both go", "\t a b \t: \tc d \t", {{"a b", "c d"}}},
      {"a value with a colon is left out", "Mount Point: /Volumes/a:b\nx: y", {{"x", "y"}}},
      {"a key without value is left out", "a:\nb", {}},
      {"a blank value is an empty one", "a: ", {{"a", ""}}},
      {"colons in a row are one cut", "a:: b", {{"a", "b"}}},
      {"a colon in front makes no piece", ": a: b", {{"a", "b"}}},
      {"the last of a key counts", "a: 1\nb: 2\na: 3", {{"a", "3"}, {"b", "2"}}},
      {"empty lines", "\n\na: 1\n\n", {{"a", "1"}}},
      {"a key ignored later keeps its value", "a: 1\na: 2:3", {{"a", "1"}}},
  };
  for (const Case& row : cases) EXPECT_EQ(parseDiskInfo(row.output), row.expected) << row.name;
}

TEST(BytesFromSize, theFirstNumberBehindAParenthesis) {
  struct Case {
    std::string name;
    std::optional<std::string_view> value;
    std::int64_t expected;
  };
  const Case cases[] = {
      {"a size", "500.1 GB (500068036608 Bytes) (exactly 976695384 512-Byte-Units)", 500068036608},
      {"no value", std::nullopt, 0},
      {"an empty value", "", 0},
      {"no parenthesis", "500068036608 Bytes", 0},
      {"a first parenthesis without a number", "(exactly 5) (7 Bytes)", 7},
      {"a number that ends at a parenthesis is none", "(7) (8 Bytes)", 8},
      {"zero", "0 B (0 Bytes) (exactly 0 512-Byte-Units)", 0},
      {"a first zero hides a second number", "(0 Bytes) (5 x)", 0},
      {"a blank behind the parenthesis", "( 7 Bytes)", 0},
      {"beyond 64 bits", "(9223372036854775808 Bytes) (5 x)", 5},
      {"in words", "(zero bytes)", 0},
      {"signs are part of a number", "(-5 Bytes)", -5},
      {"a parenthesis inside a word", "a(7 Bytes)", 0},
      {"tabs cut too", "x\t(7\tBytes)", 7},
  };
  for (const Case& row : cases) EXPECT_EQ(bytesFromSize(row.value), row.expected) << row.name;
}

TEST(StorageDeviceOf, everyRule) {
  const DiskInfo whole = {{"Mounted", "Yes"},
                          {"Device Node", "/dev/disk1s1"},
                          {"Mount Point", "/"},
                          {"Type (Bundle)", "apfs"},
                          {"Read-Only Volume", "No"},
                          {"Container Total Space", "5 GB (500 Bytes)"},
                          {"Container Free Space", "2 GB (200 Bytes)"},
                          {"Volume Total Space", "5 GB (50 Bytes)"},
                          {"Volume Free Space", "2 GB (20 Bytes)"}};
  const StorageDevice expected{"/dev/disk1s1", "/", "apfs", "rw,local", 500, 200};
  EXPECT_EQ(storageDevice(whole), expected);

  struct Case {
    std::string name, key;
    std::optional<std::string> value;
    std::optional<StorageDevice> expected;
  };
  const auto with = [&expected](auto change) {
    StorageDevice device = expected;
    change(device);
    return device;
  };
  const auto readOnly = with([](auto& device) { device.options = "ro,local"; });
  const Case cases[] = {
      {"not mounted", "Mounted", "No", std::nullopt},
      {"no file system", "Mounted", "Not applicable (no file system)", std::nullopt},
      {"in other letters", "Mounted", "yes", std::nullopt},
      {"nothing said of it", "Mounted", std::nullopt, std::nullopt},
      {"no node", "Device Node", std::nullopt, with([](auto& device) { device.device = "unknown"; })},
      {"no mount point", "Mount Point", std::nullopt,
       with([](auto& device) { device.mount_point = "unknown"; })},
      {"no type", "Type (Bundle)", std::nullopt, with([](auto& device) { device.file_system = "unknown"; })},
      {"an empty mount point stays empty", "Mount Point", "",
       with([](auto& device) { device.mount_point = ""; })},
      {"read-only", "Read-Only Volume", "Yes", readOnly},
      {"read-only with a reason", "Read-Only Volume", "Yes (read-only mount flag set)", readOnly},
      {"nothing said of writing", "Read-Only Volume", std::nullopt, readOnly},
      {"in other letters too", "Read-Only Volume", "no", readOnly},
      {"no container: the volume's size", "Container Total Space", std::nullopt,
       with([](auto& device) { device.size = 50; })},
      {"an empty container too", "Container Total Space", "0 B (0 Bytes)",
       with([](auto& device) { device.size = 50; })},
      {"an empty container's free space", "Container Free Space", "0 B (0 Bytes)",
       with([](auto& device) { device.free = 20; })},
      {"no container: the volume's free space", "Container Free Space", std::nullopt,
       with([](auto& device) { device.free = 20; })},
  };
  for (const Case& row : cases) {
    DiskInfo info = whole;
    info.erase(row.key);
    if (row.value) info[row.key] = *row.value;
    EXPECT_EQ(storageDevice(info), row.expected) << row.name;
  }
  EXPECT_EQ(storageDevice({{"Mounted", "Yes"}}),
            (StorageDevice{"unknown", "unknown", "unknown", "ro,local", 0, 0}));
}

TEST(ReadDiskInfo, aColonInTheMountPointHidesIt) {
  test::FakeHost host;
  host.runner().answer("diskutil info disk4s1", "Mounted: Yes\nMount Point: /Volumes/a:b\n");
  EXPECT_EQ(readDiskInfo("disk4s1", host),
            (StorageDevice{"unknown", "unknown", "unknown", "ro,local", 0, 0}));
  EXPECT_EQ(host.runner().commandLines(), Lines{"streaming diskutil info disk4s1"});
}

TEST(GetStorageDevices, oneInformationRunPerIdentifier) {
  test::FakeHost host;
  host.runner().answer("diskutil list", "a disk0\nb disk0s1\nc disk0");
  host.runner().answer("diskutil info disk0", "Mounted: Yes\nDevice Node: /dev/disk0");
  const StorageDevice device{"/dev/disk0", "unknown", "unknown", "ro,local", 0, 0};
  EXPECT_EQ(getStorageDevices(host), (std::vector<StorageDevice>{device, device}));
  EXPECT_EQ(host.runner().commandLines(),
            (Lines{"streaming diskutil list", "streaming diskutil info disk0",
                   "streaming diskutil info disk0s1", "streaming diskutil info disk0"}));
  EXPECT_EQ(host.runnersMade(), 4) << "a fresh one each";
}

TEST(GetStorageDevices, ofThreeMachines) {
  const auto apfs = [](const std::string& node, const std::string& mountPoint, std::int64_t size,
                       std::int64_t free) {
    return StorageDevice{"/dev/" + node, mountPoint, "apfs", "ro,local", size, free};
  };
  struct Case {
    std::string machine;
    std::vector<StorageDevice> expected;
  };
  const Case cases[] = {
      {"intel-ventura",
       {apfs("disk1s1", "/System/Volumes/Data", 499963174912, 308453793792),
        apfs("disk1s2", "/System/Volumes/Preboot", 499963174912, 308453793792),
        apfs("disk1s4s1", "/", 499963174912, 308453793792),
        apfs("disk1s6", "/System/Volumes/VM", 499963174912, 308453793792),
        {"/dev/disk2s2", "/Volumes/Backup", "hfs", "ro,local", 799861198848, 402118844416}}},
      {"m2-sonoma",
       {apfs("disk3s1s1", "/", 494384795648, 184772820992),
        apfs("disk3s2", "/System/Volumes/Preboot", 494384795648, 184772820992),
        apfs("disk3s5", "/System/Volumes/Data", 494384795648, 184772820992),
        apfs("disk3s6", "/System/Volumes/VM", 494384795648, 184772820992),
        {"/dev/disk4s1", "/Volumes/Fotos Urlaub", "exfat", "ro,local", 31897812992, 20118844416}}},
      {"m4-sequoia",
       {apfs("disk3s1s1", "/", 245107195904, 92275552256),
        apfs("disk3s2", "/System/Volumes/Preboot", 245107195904, 92275552256),
        apfs("disk3s4", "/System/Volumes/Update", 245107195904, 92275552256),
        apfs("disk3s5", "/System/Volumes/Data", 245107195904, 92275552256),
        apfs("disk3s6", "/System/Volumes/VM", 245107195904, 92275552256),
        apfs("disk5s1",
             "/System/Library/AssetsV2/com_apple_MobileAsset_PKITrustStore/purpose_auto/"
             "0123456789abcdef0123456789abcdef01234567.asset/.AssetData",
             4194304, 3149824),
        apfs("disk7s1", "/Volumes/Projects", 2000189177856, 1204118844416),
        {"/dev/disk8s1", "unknown", "exfat", "ro,local", 127859163136, 41118844928},
        {"/dev/disk9s1", "/Volumes/Install Editor", "hfs", "ro,local", 838819840, 0}}},
  };
  for (const Case& row : cases) {
    test::FakeHost host;
    host.runner().answer("diskutil list", test::machineOutput(row.machine, "diskutil list"));
    for (const std::string& identifier : listDiskIdentifiers(host.runner()))
      host.runner().answer("diskutil info " + identifier,
                           test::machineOutput(row.machine, "diskutil info " + identifier));
    EXPECT_EQ(getStorageDevices(host), row.expected) << row.machine;
  }
}

TEST(ParseDiskInfo, whateverIsPrintedKeysAndValuesHaveNoColon) {
  const std::string pieces[] = {"Mounted", ":", ": ", "Yes", "\n", " ", "(5", "\xFF", "\t", "a", "\u2029"};
  std::mt19937 random(11);
  std::size_t found = 0;
  for (int round = 0; round < 5000; ++round) {
    std::string output;
    for (auto count = random() % 40; count > 0; --count) output += pieces[random() % std::size(pieces)];
    const DiskInfo info = parseDiskInfo(output);
    for (const auto& [key, value] : info) {
      ++found;
      ASSERT_EQ((key + value).find_first_of(":\n"), std::string::npos) << output;
      (void)bytesFromSize(value);
    }
    (void)storageDevice(info);
  }
  EXPECT_GT(found, 1000U);
}

TEST(StorageDeviceOf, wellFormedTextComesBackAsItWas) {
  std::mt19937_64 random(12);
  for (int round = 0; round < 1000; ++round) {
    StorageDevice device{
        "/dev/disk" + std::to_string(random() % 99), "/Volumes/V " + std::to_string(random()),
        random() % 2 == 0 ? "apfs" : "exfat",        random() % 2 == 0 ? "rw,local" : "ro,local",
        static_cast<std::int64_t>(random() >> 1U),   static_cast<std::int64_t>(random() >> 1U)};
    const std::string kind = random() % 2 == 0 ? "Container" : "Volume";
    const std::string text = "   Device Node:      " + device.device +
                             "\n\n   Mounted:   Yes\n   Mount Point:  " + device.mount_point +
                             "\n   Type (Bundle):    " + device.file_system +
                             "\n   Read-Only Volume: " + (device.options == "rw,local" ? "No" : "Yes") +
                             "\n   " + kind + " Total Space:  1 GB (" + std::to_string(device.size) +
                             " Bytes) (exactly 1 512-Byte-Units)\n   " + kind + " Free Space:  1 GB (" +
                             std::to_string(device.free) + " Bytes)\n";
    ASSERT_EQ(storageDevice(parseDiskInfo(text)), device) << text;
  }
}

}  // namespace
}  // namespace msp
