// signature   := name " <" e-mail "> " seconds SP ("+" | "-") hours minutes
// description := message [LF LF "Workspace:" (" merges=" id)*]

#include "commit_text.h"

#include "../text.h"
#include "stream_reader.h"

namespace Tal {
namespace {

constexpr std::string_view kKey = "Workspace:";

/// True for a message whose last line would be taken for the one that a workspace adds.
bool EndsLikeAnnotation(std::string_view message) {
  const std::size_t line = message.rfind('\n');
  return line != message.npos && line > 0 && message[line - 1] == '\n' &&
         message.substr(line + 1).starts_with(kKey);
}

std::optional<std::chrono::minutes> ParseOffset(std::string_view text) {
  const bool is_west = text.starts_with('-');
  if ((!is_west && !text.starts_with('+')) || text.size() < 3 || text.size() > 7) return {};
  const std::optional<std::uint64_t> digits = ParseNumber(text.substr(1));
  if (!digits) return {};
  const auto minutes = static_cast<std::int64_t>(*digits / 100 * 60 + *digits % 100);
  return std::chrono::minutes(is_west ? -minutes : minutes);
}

std::optional<std::chrono::sys_seconds> ParseSeconds(std::string_view text) {
  const bool is_negative = text.starts_with('-');
  const std::optional<std::uint64_t> number = ParseNumber(text.substr(is_negative ? 1 : 0));
  constexpr std::uint64_t kMost = 1ULL << 62U;
  if (!number || *number > kMost) return {};
  const auto seconds = static_cast<std::int64_t>(*number);
  return std::chrono::sys_seconds(std::chrono::seconds(is_negative ? -seconds : seconds));
}

}  // namespace

std::optional<GitSignature> ParseSignature(std::string_view text) {
  const std::size_t open = text.find('<');
  const std::size_t close = text.find("> ", open == text.npos ? 0 : open);
  if (open == text.npos || close == text.npos) return std::nullopt;
  const std::string_view date = text.substr(close + 2);
  const std::size_t blank = date.find(' ');
  if (blank == date.npos) return std::nullopt;
  const auto seconds = ParseSeconds(date.substr(0, blank));
  const auto offset = ParseOffset(date.substr(blank + 1));
  if (!seconds || !offset) return std::nullopt;
  std::string_view name = text.substr(0, open);
  if (name.ends_with(' ')) name.remove_suffix(1);
  return GitSignature{std::string(name), std::string(text.substr(open + 1, close - open - 1)),
                      *seconds, *offset};
}

std::string DescriptionOf(std::string message, const std::vector<TalVcs::Id>& merged) {
  if (merged.empty() && !EndsLikeAnnotation(message)) return message;
  message += "\n\n";
  message += kKey;
  for (const TalVcs::Id& id : merged) message += " merges=" + ToUtf8(id);
  return message;
}

}  // namespace Tal
