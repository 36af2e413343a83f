#include <kit/history/revision.h>
#include <kit/text.h>

#include <charconv>
#include <limits>
#include <utility>

namespace TalVcs::Kit {

namespace {

Error NoRevision(std::string_view revision) {
  Error error;
  error.code = ErrorCode::NotFound;
  error.message = "there is no branch, tag or version \"" + std::string(revision) + "\"";
  error.subject = revision;
  return error;
}

Result<Version> FindUnique(const Workspace& workspace, std::string_view prefix) {
  Result<std::vector<Version>> found = FindByPrefix(workspace, prefix);
  if (!found) return std::move(found).error();
  if (found->empty()) return NoRevision(prefix);
  if (found->size() == 1) return std::move(found->front());
  Error error;
  error.code = ErrorCode::BadName;
  error.message = std::to_string(found->size()) + " versions have an id that begins with \"" +
                  std::string(prefix) + "\"";
  error.subject = prefix;
  return error;
}

Result<Version> FindWithoutSteps(const Workspace& workspace, std::string_view name) {
  if (name == kHeadRevision) {
    Result<std::optional<Version>> head = workspace.GetHead();
    if (!head) return std::move(head).error();
    if (!*head) return NoRevision(name);
    return **std::move(head);
  }
  Result<Version> version = workspace.Find(name);
  if (version || version.error().code != ErrorCode::NotFound) return version;
  return FindUnique(workspace, name);
}

}  // namespace

std::optional<RevisionSteps> SplitSteps(std::string_view revision) {
  const std::size_t mark = revision.rfind('~');
  if (mark == revision.npos) return std::nullopt;
  RevisionSteps split{std::string(revision.substr(0, mark))};
  const char* const first = revision.data() + mark + 1;
  const char* const last = revision.data() + revision.size();
  if (first == last) return split;
  const auto [end, error] = std::from_chars(first, last, split.steps);
  if (error == std::errc::invalid_argument || end != last) return std::nullopt;
  // More steps than any history has.
  if (error != std::errc()) split.steps = std::numeric_limits<std::uint32_t>::max();
  return split;
}

Result<std::vector<Version>> FindByPrefix(const Workspace& workspace, std::string_view prefix) {
  std::vector<Version> found;
  const bool is_hex = prefix.find_first_not_of("0123456789abcdef") == prefix.npos;
  if (!is_hex || prefix.size() < kFewestPrefixCharacters) return found;
  Result<std::vector<Version>> versions = workspace.Log({.allBranches = true, .limit = UINT64_MAX});
  if (!versions) return versions;
  for (Version& version : *versions) {
    if (ToUtf8(version.id.View()).starts_with(prefix)) found.push_back(std::move(version));
  }
  return found;
}

Result<Version> FindRevision(const Workspace& workspace, std::string_view revision) {
  Result<Version> found = FindWithoutSteps(workspace, revision);
  if (found || found.error().code != ErrorCode::NotFound) return found;
  const std::optional<RevisionSteps> split = SplitSteps(revision);
  if (!split) return found;
  Result<Version> version = FindWithoutSteps(workspace, split->name);
  for (std::uint32_t step = 0; version && step < split->steps; ++step) {
    if (version->parent.View().IsEmpty()) return NoRevision(revision);
    version = workspace.Find(ToUtf8(version->parent.View()));
  }
  return version;
}

}  // namespace TalVcs::Kit
