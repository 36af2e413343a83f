#pragma once

#include <talvcs/objects/id.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Tal {

/// Who made a commit in git, and when.
struct GitSignature {
  std::string name;
  std::string email;
  std::chrono::sys_seconds time = {};
  std::chrono::minutes offset = {};
};

/// Reads `NAME <EMAIL> SECONDS OFFSET`. Returns none for anything else.
std::optional<GitSignature> ParseSignature(std::string_view text);

/// Returns the description of a version with that message that has merged the heads `merged`; see
/// "Versions of a workspace" in docs/formats.md.
std::string DescriptionOf(std::string message, const std::vector<TalVcs::Id>& merged);

}  // namespace Tal
