#include "inventory/storage_inventory.h"

#include <utility>

#include "platform/text.h"

namespace msp {
namespace {

std::optional<std::string_view> find(const DiskInfo& info, std::string_view key) {
  const auto found = info.find(key);
  if (found == info.end()) return std::nullopt;
  return found->second;
}

std::string textOrUnknown(const DiskInfo& info, std::string_view key) {
  return std::string(find(info, key).value_or("unknown"));
}

/// The container's bytes, for a volume that shares one; else the volume's.
std::int64_t space(const DiskInfo& info, std::string_view containerKey, std::string_view volumeKey) {
  const std::int64_t ofContainer = bytesFromSize(find(info, containerKey));
  return ofContainer != 0 ? ofContainer : bytesFromSize(find(info, volumeKey));
}

}  // namespace

std::vector<StorageDevice> getStorageDevices(const Host& host) {
  std::vector<StorageDevice> devices;
  for (const std::string& identifier : listDiskIdentifiers(*host.makeTaskRunner())) {
    auto device = readDiskInfo(identifier, host);
    if (device) devices.push_back(*std::move(device));
  }
  return devices;
}

std::vector<std::string> listDiskIdentifiers(TaskRunner& runner) {
  const std::string output = runner.runCommandStreaming("diskutil", {"list"});
  std::vector<std::string> identifiers;
  for (const std::string_view line : lines(output)) {
    const auto pieces = words(line);
    if (!pieces.empty() && pieces.back().starts_with("disk")) identifiers.emplace_back(pieces.back());
  }
  return identifiers;
}

std::optional<StorageDevice> readDiskInfo(const std::string& identifier, const Host& host) {
  return storageDevice(
      parseDiskInfo(host.makeTaskRunner()->runCommandStreaming("diskutil", {"info", identifier})));
}

DiskInfo parseDiskInfo(std::string_view text) {
  DiskInfo info;
  for (const std::string_view line : lines(text)) {
    const auto pieces = splitNonEmpty(line, ':');
    if (pieces.size() == 2) info[std::string(trimBlanks(pieces[0]))] = trimBlanks(pieces[1]);
  }
  return info;
}

std::optional<StorageDevice> storageDevice(const DiskInfo& info) {
  if (find(info, "Mounted") != "Yes") return std::nullopt;
  return StorageDevice{
      .device = textOrUnknown(info, "Device Node"),
      .mount_point = textOrUnknown(info, "Mount Point"),
      .file_system = textOrUnknown(info, "Type (Bundle)"),
      .options = find(info, "Read-Only Volume") == "No" ? "rw,local" : "ro,local",
      .size = space(info, "Container Total Space", "Volume Total Space"),
      .free = space(info, "Container Free Space", "Volume Free Space"),
  };
}

std::int64_t bytesFromSize(std::optional<std::string_view> value) {
  if (!value) return 0;
  for (const std::string_view piece : words(*value)) {
    if (!piece.starts_with("(")) continue;
    const auto bytes = parseInteger(piece.substr(1));
    if (bytes) return *bytes;
  }
  return 0;
}

}  // namespace msp
