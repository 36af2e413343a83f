#pragma once

#include <kit/text.h>
#include <kit/text/result.h>

#include <string_view>

namespace TalVcs::Kit {

/// Returns the path as the core takes it. `BadName` for an empty path, an empty name in it and for
/// U+0000; `BadText` for what isn't UTF-8.
Result<WideString> CheckedPath(std::string_view path);

/// Does the same with the path of a folder, which may be empty.
Result<WideString> CheckedFolder(std::string_view path);

/// Returns a text as the core takes it. `BadText` for U+0000 and for what isn't UTF-8. `kind` says
/// in the message which text it is.
Result<WideString> CheckedText(std::string_view text, std::string_view kind);

/// Makes an error, with what is unchanged.
Error WorkspaceError(ErrorCode code, std::string message, std::string_view subject);

}  // namespace TalVcs::Kit
