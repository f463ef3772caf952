#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "inventory/storage_device.h"
#include "platform/host.h"

/// The Mac's mounted disks and volumes, through diskutil(8). What a failed tool would have told is missing.
namespace msp {

/// Every mounted volume, in the order of `diskutil list`.
std::vector<StorageDevice> getStorageDevices(const Host& host);

/// The disks and partitions of `diskutil list`: the last word of every line where that begins with "disk".
/// The same disk may come more than once.
std::vector<std::string> listDiskIdentifiers(TaskRunner& runner);

/// What `diskutil info` says of one disk; nothing when it is not mounted.
std::optional<StorageDevice> readDiskInfo(const std::string& identifier, const Host& host);

using DiskInfo = std::map<std::string, std::string, std::less<>>;
/// From the "Key: value" lines of `diskutil info`. A value with a colon is left out; of a key that comes
/// twice the last one counts.
DiskInfo parseDiskInfo(std::string_view text);

/// Nothing when it is not mounted.
std::optional<StorageDevice> storageDevice(const DiskInfo& info);

/// 500068036608 from "500.1 GB (500068036608 Bytes) (exactly 976695384 512-Byte-Units)": the first word that
/// is a parenthesis and a whole number. 0 when there is none, and for no value at all.
std::int64_t bytesFromSize(std::optional<std::string_view> value);

}  // namespace msp
