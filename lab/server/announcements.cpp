#include "server/announcements.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace msp::lab {
namespace {

const Json* member(const Json& object, const char* key) {
  if (!object.is_object()) return nullptr;
  const auto found = object.find(key);
  return found == object.end() ? nullptr : &*found;
}

/// A text of the report; "-" when it is empty, as the public address before its first look-up.
std::string text(const Json& object, const char* key) {
  const Json* value = member(object, key);
  if (value == nullptr || !value->is_string()) return "?";
  const auto& content = value->get_ref<const std::string&>();
  return content.empty() ? "-" : printable(content);
}

std::string size(const Json& report, const char* key, bool binary) {
  const Json* value = member(report, key);
  if (value == nullptr || !value->is_number_integer()) return "?";
  return sizeText(value->get<std::int64_t>(), binary);
}

/// "3 network interfaces", for every list in a result.
std::string listCounts(const Json& result) {
  std::string counts;
  for (const auto& [key, value] : result.items()) {
    if (!value.is_array()) continue;
    std::string name = printable(key);
    std::replace(name.begin(), name.end(), '_', ' ');
    counts.append(", ").append(std::to_string(value.size())).append(" ").append(name);
  }
  return counts;
}

}  // namespace

std::string printable(std::string_view text, std::size_t limit) {
  std::string line(text);
  for (char& character : line) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < 0x20 || byte == 0x7f) character = ' ';
  }
  if (line.size() <= limit) return line;
  std::size_t end = limit;
  const auto isContinuation = [&line](std::size_t at) {
    return (static_cast<unsigned char>(line[at]) & 0xc0U) == 0x80U;
  };
  while (end > 0 && isContinuation(end)) --end;
  return line.substr(0, end) + "...";
}

std::string sizeText(std::int64_t bytes, bool binary) {
  const double unit = binary ? 1024 : 1000;
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "%.1f GB", static_cast<double>(bytes) / (unit * unit * unit));
  return text.data();
}

std::string registrationLine(const std::string& name, const std::string& uuid) {
  return "registration: " + printable(name) + " -> " + printable(uuid);
}

std::string checkInLine(std::size_t number, const Json& report) {
  return "check-in " + std::to_string(number) + ": " + text(report, "name") + ", " + text(report, "os_name") +
         " " + text(report, "os_build") + ", " + text(report, "hw_model") + ", serial " +
         text(report, "hw_serial_number") + ", addresses " + text(report, "ipv4_address") + " (local) " +
         text(report, "wan_ipv4_address") + " (public), memory " + size(report, "ram", true) + " (" +
         size(report, "free_ram", true) + " free), disk " + size(report, "primary_drive_size", false) + " (" +
         size(report, "primary_drive_free_space", false) + " free), load " + text(report, "load_average");
}

std::string jobQueuedLine(const Json& job) {
  std::string line = "job " + text(job, "id") + " queued: " + text(job, "type");
  if (member(job, "arguments") != nullptr) line.append(" ").append(text(job, "arguments"));
  return line;
}

std::string resultLine(const std::string& jobType, const Json& result) {
  const Json* id = member(result, "id");
  const Json* success = member(result, "success");
  const Json* message = member(result, "message");
  std::string line = "job ";
  line.append(id == nullptr ? "?" : compact(*id)).append(" (").append(printable(jobType)).append("): ");
  line += success != nullptr && *success == 1 ? "success" : "failure";
  line += listCounts(result);
  if (message != nullptr && message->is_string() && !message->get_ref<const std::string&>().empty())
    line.append(", \"").append(text(result, "message")).append("\"");
  return line;
}

}  // namespace msp::lab
