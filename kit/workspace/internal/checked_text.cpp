#include <kit/workspace/internal/checked_text.h>

#include <algorithm>
#include <string>
#include <utility>

namespace TalVcs::Kit {

namespace {

/// Returns the offset of the first byte that is no UTF-8. A bad byte becomes U+FFFD, so the texts
/// differ from there on.
std::size_t OffsetOfBadByte(std::string_view text) {
  const std::string decoded = ToUtf8(ToWide(text));
  return static_cast<std::size_t>(std::ranges::mismatch(text, decoded).in1 - text.begin());
}

Error BadName(std::string_view path, std::string_view reason) {
  return WorkspaceError(ErrorCode::BadName,
                        "\"" + std::string(path) + "\" is no path: " + std::string(reason), path);
}

}  // namespace

Error WorkspaceError(ErrorCode code, std::string message, std::string_view subject) {
  Error error;
  error.code = code;
  error.message = std::move(message);
  error.subject = subject;
  error.unchanged = "nothing has changed";
  return error;
}

Result<WideString> CheckedText(std::string_view text, std::string_view kind) {
  std::optional<WideString> wide = ToWideExactly(text);
  std::string reason;
  if (!wide) {
    reason = "is no UTF-8 at byte " + std::to_string(OffsetOfBadByte(text));
  } else if (const std::size_t zero = text.find('\0'); zero != text.npos) {
    reason = "has U+0000 at byte " + std::to_string(zero);
  } else {
    return *std::move(wide);
  }
  return WorkspaceError(ErrorCode::BadText, "the " + std::string(kind) + " " + reason,
                        ToUtf8(ToWide(text)));
}

Result<WideString> CheckedPath(std::string_view path) {
  if (path.empty()) return BadName(path, "it is empty");
  if (path.find('\0') != path.npos) return BadName(path, "it has U+0000 in it");
  if (path.front() == '/' || path.back() == '/' || path.find("//") != path.npos) {
    return BadName(path, "a name in it is empty");
  }
  return CheckedText(path, "path");
}

Result<WideString> CheckedFolder(std::string_view path) {
  if (path.empty()) return WideString();
  return CheckedPath(path);
}

}  // namespace TalVcs::Kit
