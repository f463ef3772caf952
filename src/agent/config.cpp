#include "agent/config.h"

#include <nlohmann/json.hpp>

#include "api/json_utilities.h"
#include "platform/event_log.h"
#include "platform/text.h"

namespace msp {

std::optional<Config> parseConfig(std::string_view text) {
  std::string unreported;
  const auto json = parseJson(text, unreported);
  if (!json) return std::nullopt;
  auto url = stringValue(*json, "api_url");
  auto uuid = stringValue(*json, "api_uuid");
  auto id = stringValue(*json, "agent_id");
  auto version = stringValue(*json, "agent_version");
  if (!url || !uuid || !id || !version) return std::nullopt;
  return Config{std::move(*url), std::move(*uuid), std::move(*id), std::move(*version)};
}

std::optional<std::string> ConfigFiles::configFileURL(bool mustExist) const {
  const std::string path = directory_ + "/config.ini";
  if (!fileExists(directory_) || (mustExist && !fileExists(path))) return std::nullopt;
  return path;
}

std::optional<Config> ConfigFiles::load() const {
  const auto path = configFileURL(true);
  if (!path) return std::nullopt;
  const auto content = readFile(*path);
  if (std::holds_alternative<FileError>(content)) return std::nullopt;
  return parseConfig(std::get<std::string>(content));
}

void ConfigFiles::store(const Config& config) const {
  const auto path = configFileURL(false);
  if (!path) return;
  const Json json = {{"api_url", config.api_url},
                     {"api_uuid", config.api_uuid},
                     {"agent_id", config.agent_id},
                     {"agent_version", config.agent_version}};
  std::string problem;
  const auto text = compactText(json, problem);
  if (!text) {
    logEvent("Error converting config to JSON: " + problem);
  } else if (const auto error = replaceFileOrOverwrite(*path, *text)) {
    logEvent("Error converting config to JSON: " + error->description);
  }
}

std::optional<std::string> ConfigFiles::defaultAPIAddress() const {
  const std::string path = directory_ + "/default_api.txt";
  if (!fileExists(directory_) || !fileExists(path)) return std::nullopt;
  const auto content = readFile(path);
  const auto* const bytes = std::get_if<std::string>(&content);
  const auto text = bytes == nullptr ? std::nullopt : decodeText(*bytes);
  if (!text) {
    logEvent("No default API address.");
    return std::nullopt;
  }
  return std::string(trimWhiteSpaceAndNewlines(*text));
}

}  // namespace msp
