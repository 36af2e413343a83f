#pragma once

#include <string>
#include <string_view>

namespace Tal {

/// Returns a path as a stream for git holds it: in quotation marks with escapes where it needs
/// them, otherwise as it is.
std::string QuoteGitPath(std::string_view path);

/// Reads a path from the beginning of `text`, and removes it from there. One without quotation
/// marks ends at the first blank if `endsAtBlank` is true, otherwise at the end. Returns false if
/// quotation marks aren't closed or an escape isn't known.
bool TakeGitPath(std::string_view& text, bool endsAtBlank, std::string& path);

}  // namespace Tal
