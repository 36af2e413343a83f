#include "imported_refs.h"

#include "../failure.h"
#include "../terminal.h"
#include "merged_heads.h"

#include <unordered_set>

namespace Tal {
namespace {

constexpr std::string_view kBranches = "refs/heads/";
constexpr std::string_view kTags = "refs/tags/";
constexpr std::string_view kTagPrefix = "tags/";

/// Returns the name of the branch of the store, or an empty text for a ref that has none.
std::string BranchOf(const std::string& ref) {
  if (ref.starts_with(kTags)) return std::string(kTagPrefix) + ref.substr(kTags.size());
  if (!ref.starts_with(kBranches)) return {};
  std::string name = ref.substr(kBranches.size());
  return name.starts_with(kTagPrefix) ? std::string() : name;
}

bool IsInLine(TalVcs::cow_ptr<TalVcs::Commit> commit, const TalVcs::Id& ancestor) {
  while (commit && !(commit->GetId() == ancestor)) commit = commit->GetParent();
  return static_cast<bool>(commit);
}

void PutBranch(TalVcs::Repository& repository, const WideString& name,
               const TalVcs::cow_ptr<TalVcs::Commit>& commit) {
  if (repository.BranchExist(name)) {
    repository.MoveBranchTo(name, commit);
  } else {
    repository.CreateBranch(name, commit);
  }
}

}  // namespace

ImportedRefs::CommitHandle ImportedRefs::Find(const std::string& ref) const {
  const auto found = m_refs.find(ref);
  return found == m_refs.end() ? nullptr : found->second;
}

ImportedRefs::CommitHandle ImportedRefs::Find(const std::string& ref,
                                              const TalVcs::Repository& repository) const {
  CommitHandle commit = Find(ref);
  const std::string branch = BranchOf(ref);
  return commit || branch.empty() ? commit : repository.GetHead(ToWide(branch));
}

ImportedRefs::Counts ImportedRefs::MoveBranches(TalVcs::Repository& repository,
                                                ImportNotes& notes) const {
  Counts counts;
  const bool has_head = static_cast<bool>(repository.GetHead());
  for (const auto& [ref, commit] : m_refs) {
    if (commit) MoveBranch(ref, commit, repository, notes, counts);
  }
  counts.merged = TagMerged(repository);
  if (!has_head && !repository.GetHead()) ChooseBranch(repository);
  return counts;
}

void ImportedRefs::MoveBranch(const std::string& ref, const CommitHandle& commit,
                              TalVcs::Repository& repository, ImportNotes& notes,
                              Counts& counts) const {
  const std::string name = BranchOf(ref);
  if (name.empty()) {
    ++notes[{"ref", "left out that is no branch or tag here: " + Printable(ref)}];
    return;
  }
  const std::optional<WideString> wide = ToWideExactly(name);
  if (!wide) throw Failure(Printable(ref) + ": the name is not UTF-8; nothing was imported");
  const CommitHandle head = repository.GetHead(*wide);
  if (head && !IsInLine(commit, head->GetId())) {
    throw Failure(Printable(name) + " has versions that the stream lacks; nothing was imported");
  }
  PutBranch(repository, *wide, commit);
  ++(ref.starts_with(kTags) ? counts.tags : counts.branches);
}

/// Tags what only merges reach, the newest first, so that one tag serves a whole line.
std::uint64_t ImportedRefs::TagMerged(TalVcs::Repository& repository) const {
  std::unordered_set<TalVcs::Id> reached;
  const auto reach = [&](CommitHandle commit) {
    while (commit && reached.insert(commit->GetId()).second) commit = commit->GetParent();
  };
  for (const auto& [name, head] : repository.GetStorage()->GetRefs()) reach(head);
  std::uint64_t count = 0;
  for (auto commit = m_merged.rbegin(); commit != m_merged.rend(); ++commit) {
    if (reached.contains((*commit)->GetId())) continue;
    reach(*commit);
    PutBranch(repository, ToWide(std::string(kTagPrefix) + MergedTagOf((*commit)->GetId())),
              *commit);
    ++count;
  }
  return count;
}

void ImportedRefs::ChooseBranch(TalVcs::Repository& repository) const {
  if (Find("refs/heads/main") && repository.Checkout(ToWide("main"))) return;
  for (const auto& [ref, commit] : m_refs) {
    const std::string name = BranchOf(ref);
    if (!commit || name.empty() || ref.starts_with(kTags)) continue;
    repository.Checkout(ToWide(name));
    return;
  }
}

}  // namespace Tal
