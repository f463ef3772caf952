#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "mac/answer.h"

namespace msp::lab {

/// Whether the text can be the name of an entry of a folder, and of nothing else: no "/", not "." or "..".
[[nodiscard]] bool isPlainName(std::string_view text);

/// Makes `<lab>/Users/<name>` unless it is there. Throws std::system_error when it cannot, and
/// std::invalid_argument when the name is not plain.
void createHomeFolder(const std::filesystem::path& lab, const std::string& name);

/// `rm -rf /Users/<name>/`: removes `<lab>/Users/<name>` with all that it holds. It goes from one open
/// folder to the next and follows no symbolic link, so that it reaches nothing outside of the lab's Users,
/// whatever lies there. A name that is not plain, and an entry that is no folder, are refused on standard
/// error with status 1; a folder that is missing is no failure.
[[nodiscard]] Answer removeHomeFolder(const std::filesystem::path& lab, const std::string& name);

}  // namespace msp::lab
