#pragma once

#include <kit/store/head_table.h>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace TalVcs::Kit::Zip {

/// Everything in a document but its objects.
struct DocumentState {
  HeadTable heads;
  std::map<std::string, std::string, std::less<>> values;

  friend bool operator==(const DocumentState&, const DocumentState&) = default;
};

/// Returns 64 hexadecimal digits that fit this state alone.
std::string DigestOf(const DocumentState& state);

/// Returns the text of the entry that marks an archive as a document in that state.
std::string ReadmeOf(const DocumentState& state);

/// What such a text says.
struct Readme {
  std::string_view format;  ///< The number of the format.
  std::string_view digest;  ///< The digest of the state.
};
/// Returns nothing for a text that `ReadmeOf` does not return in any version.
std::optional<Readme> ParseReadme(std::string_view text);

/// The only format that is known.
inline constexpr std::string_view kFormat = "1";

}  // namespace TalVcs::Kit::Zip
