#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/file_system.h"

namespace msp {

/// The agent's identity at its server. The field names are the keys in `config.ini`.
struct Config {
  std::string api_url;   // where every request is posted
  std::string api_uuid;  // sent with every check-in
  std::string agent_id;
  std::string agent_version;  // of the agent that last wrote the file

  bool operator==(const Config&) const = default;
};

/// Reads the JSON text of `config.ini`; nothing unless all four keys are there with texts. Prints nothing.
std::optional<Config> parseConfig(std::string_view text);

/// The two configuration files in the agent's directory: `config.ini`, which holds the identity, and
/// `default_api.txt`, the server address that whoever installs the agent leaves for its registration.
class ConfigFiles {
 public:
  /// The directory of the agent's executable.
  explicit ConfigFiles(std::string directory) : directory_(std::move(directory)) {}

  /// The path of `config.ini`; nothing when the directory, or with `mustExist` the file, does not exist.
  [[nodiscard]] std::optional<std::string> configFileURL(bool mustExist) const;

  /// The stored identity; nothing when it is missing, unreadable or incomplete. Reports nothing.
  [[nodiscard]] std::optional<Config> load() const;

  /// Stores the identity, whole or not at all wherever a file can be created beside it. A failure is logged;
  /// without a directory nothing happens.
  void store(const Config& config) const;

  /// The content of `default_api.txt`, trimmed. Nothing when it is missing; an unreadable one is logged too.
  [[nodiscard]] std::optional<std::string> defaultAPIAddress() const;

 private:
  std::string directory_;
};

}  // namespace msp
