#include "inventory/network_inventory.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <set>
#include <utility>

#include "platform/console.h"
#include "platform/text.h"

namespace msp {
namespace {

constexpr const char* kWirelessTool =
    "/System/Library/PrivateFrameworks/Apple80211.framework/Versions/Current/Resources/airport";
// Taken for the wireless one on every Mac, on purpose.
constexpr const char* kWirelessInterface = "en1";

/// The token after the first one that equals `key`.
std::optional<std::string_view> tokenAfter(const std::vector<std::string_view>& tokens,
                                           std::string_view key) {
  const auto found = std::find(tokens.begin(), tokens.end(), key);
  if (found == tokens.end()) return std::nullopt;
  if (found + 1 == tokens.end()) fatalError("Nothing follows the last word of an interface's configuration");
  return *(found + 1);
}

void collectConfiguration(NetworkInterface& interface, TaskRunner& runner) {
  auto configuration = parseInterfaceConfiguration(runner.runCommand("ifconfig", {interface.name}));
  interface.ip_addresses = std::move(configuration.addresses);
  interface.link = configuration.isActive ? 1 : 0;
  if (!interface.ip_addresses.empty()) {
    interface.dhcp_addresses = {
        runner.runCommand("ipconfig", {"getoption", interface.name, "server_identifier"})};
    interface.gateway_addresses = {runner.runCommand("ipconfig", {"getoption", interface.name, "router"})};
    interface.dns_addresses = parseNameServers(runner.runCommand("scutil", {"--dns"}));
  }
  if (interface.name == kWirelessInterface)
    interface.speed = parseTransmitRate(runner.runCommand(kWirelessTool, {"-I"}));
}

}  // namespace

std::vector<NetworkInterface> getNetworkInterfaces(const Host& host) {
  std::vector<NetworkInterface> interfaces;
  for (const NetworkHardware& hardware : host.networkHardware()) {
    if (!hardware.name) continue;
    NetworkInterface interface;
    interface.name = *hardware.name;
    interface.mac_address = hardware.address.value_or("");
    interface.type = hardware.kind.value_or("");
    interfaces.push_back(std::move(interface));
  }
  if (interfaces.empty()) return {};

  const auto runner = host.makeTaskRunner();
  for (NetworkInterface& interface : interfaces) collectConfiguration(interface, *runner);

  const std::string counters = runner->runCommand("netstat", {"-ib"});
  const auto counterLines = lines(counters);
  for (NetworkInterface& interface : interfaces) {
    const auto [received, sent] = parseTrafficCounters(counterLines, interface.name);
    interface.bytes_received = received;
    interface.bytes_sent = sent;
  }
  return interfaces;
}

InterfaceConfiguration parseInterfaceConfiguration(std::string_view output) {
  const auto pieces = tokens(output);
  InterfaceConfiguration configuration;
  for (const char* const family : {"inet", "inet6"}) {
    const auto address = tokenAfter(pieces, family);
    if (address) configuration.addresses.emplace_back(*address);
  }
  configuration.isActive = tokenAfter(pieces, "status:") == "active";
  return configuration;
}

std::vector<std::string> parseNameServers(std::string_view output) {
  std::vector<std::string> servers;
  std::set<std::string_view> seen;
  for (const std::string_view line : lines(output)) {
    if (line.find("nameserver") == std::string_view::npos) continue;
    const auto pieces = splitNonEmpty(line, ':');
    if (pieces.size() != 2) continue;  // an IPv6 address has colons of its own
    const std::string_view server = trimBlanks(pieces[1]);
    if (seen.insert(server).second) servers.emplace_back(server);
  }
  return servers;
}

std::int64_t parseTransmitRate(std::string_view output) {
  constexpr std::int64_t kMega = 1'000'000;
  const auto allLines = lines(output);
  const auto line = std::find_if(allLines.begin(), allLines.end(), [](std::string_view candidate) {
    return candidate.find("lastTxRate") != std::string_view::npos;
  });
  if (line == allLines.end()) return 0;
  const auto pieces = split(*line, ':');
  if (pieces.size() != 2) return 0;
  const std::int64_t megabits = parseInteger(trimBlanks(pieces[1])).value_or(0);
  std::int64_t rate = 0;
  if (__builtin_mul_overflow(megabits, kMega, &rate))
    fatalError("The wireless rate does not fit into 64 bits");
  return rate;
}

TrafficCounters parseTrafficCounters(const std::vector<std::string_view>& lines, std::string_view name) {
  constexpr std::size_t kReceivedColumn = 6;
  constexpr std::size_t kSentColumn = 9;
  constexpr std::size_t kColumns = 11;
  const auto line = std::find_if(lines.begin(), lines.end(),
                                 [name](std::string_view candidate) { return candidate.starts_with(name); });
  if (line == lines.end()) return {};
  const auto columns = tokens(*line);
  if (columns.size() < kColumns) return {};
  return {parseInteger(columns[kReceivedColumn]).value_or(0), parseInteger(columns[kSentColumn]).value_or(0)};
}

}  // namespace msp
