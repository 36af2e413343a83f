#include <kit/text.h>
#include <kit/workspace/internal/ancestry.h>
#include <kit/workspace/internal/checked_text.h>
#include <kit/workspace/internal/merge_plan.h>
#include <kit/workspace/internal/workspace_state.h>
#include <talvcs/repository/irepository.h>

#include <algorithm>
#include <memory>
#include <utility>

namespace TalVcs::Kit {

namespace {

/// Stores a file and returns its id.
Id Store(IRepository& repository, const Buffer& content) {
  cow_ptr<Blob> blob = dll_wrapped_shared(std::make_unique<Blob>(content));
  return repository.SyncWithStorage(std::move(blob))->GetId();
}

}  // namespace

MergePlan::MergePlan(IRepository& repository, MergeSides sides, TreeMerge merge)
    : m_repository(&repository), m_sides(std::move(sides)), m_merge(std::move(merge)) {}

Result<MergePlan> MergePlan::Make(IRepository& repository, MergeSides sides,
                                  const ContentMergers& mergers, Reporter& reporter) {
  Result<TreeMerge> merge = MergeTrees(sides.base, sides.ours, sides.theirs, reporter);
  if (!merge) return std::move(merge).error();
  MergePlan plan(repository, std::move(sides), *std::move(merge));
  Status status = plan.FindConflicts(mergers, reporter);
  if (!status) return std::move(status).error();
  return plan;
}

Status MergePlan::FindConflicts(const ContentMergers& mergers, Reporter& reporter) {
  std::vector<TreeConflict> undecided;
  for (TreeConflict& found : m_merge.conflicts) {
    Status status = reporter.Add(1);
    if (!status) return status;
    Conflict conflict{found.path, found.kind, SideOf(m_sides.base, found.base, found.path),
                      SideOf(m_sides.ours, found.ours, found.path),
                      SideOf(m_sides.theirs, found.theirs, found.path)};
    if (MergeContents(conflict, mergers)) continue;
    m_conflicts.push_back(std::move(conflict));
    undecided.push_back(std::move(found));
  }
  m_merge.conflicts = std::move(undecided);
  return {};
}

// A merger that can't merge a content leaves the file a conflict as a whole.
bool MergePlan::MergeContents(Conflict& conflict, const ContentMergers& mergers) {
  if (!conflict.ours.content || !conflict.theirs.content) return false;
  ContentToMerge content{conflict.path, std::nullopt, conflict.ours.content->text(),
                         conflict.theirs.content->text()};
  if (conflict.base.content) content.root = conflict.base.content->text();
  const Result<std::optional<MergedContent>> merged = mergers.Merge(content);
  if (!merged || !*merged) return false;
  conflict.merged = Bytes((*merged)->bytes);
  conflict.places = (*merged)->conflicts;
  if (!(*merged)->IsClean()) return false;
  m_merge.edits.push_back({conflict.path, Store(*m_repository, conflict.merged->GetBuffer())});
  return true;
}

ConflictSide MergePlan::SideOf(const cow_ptr<Tree>& tree, const Slot& slot,
                               const std::string& path) const {
  ConflictSide side;
  side.isFolder = slot.kind == Slot::Kind::Folder;
  if (slot.kind == Slot::Kind::File && !m_sides.unknown.contains(slot.id)) {
    side.content = Bytes(tree->GetDeepBlob(ToWide(path))->GetData());
  }
  return side;
}

cow_ptr<Tree> MergePlan::WithoutConflicts() const {
  return ApplyEdits(*m_repository, m_sides.ours, m_merge.edits);
}

TreeEdit MergePlan::Chosen(const TreeConflict& conflict, const Decision& decision) const {
  const auto edit = [&conflict](const Slot& slot, const cow_ptr<Tree>& from) {
    return TreeEdit{conflict.path, slot.id, IsEmpty(slot.id) ? cow_ptr<Tree>() : from};
  };
  switch (decision.GetSide()) {
    case Decision::Side::Ours:
      return edit(conflict.ours, m_sides.ours);
    case Decision::Side::Theirs:
      return edit(conflict.theirs, m_sides.theirs);
    case Decision::Side::Base:
      return m_sides.unknown.contains(conflict.base.id) ? edit(Slot(), nullptr)
                                                        : edit(conflict.base, m_sides.base);
    case Decision::Side::Content:
      break;
  }
  return {conflict.path, Store(*m_repository, decision.GetContent().GetBuffer())};
}

Result<cow_ptr<Tree>> MergePlan::Decide(const Decisions& decisions) const {
  for (const auto& [path, decision] : decisions) {
    if (!std::ranges::binary_search(m_conflicts, path, {}, &Conflict::path)) {
      return WorkspaceError(ErrorCode::NotFound, "there is no conflict at \"" + path + "\"", path);
    }
  }
  std::vector<TreeEdit> edits = m_merge.edits;
  for (const TreeConflict& conflict : m_merge.conflicts) {
    const auto decision = decisions.find(conflict.path);
    if (decision == decisions.end()) {
      std::string message = "both sides changed \"" + conflict.path + "\"";
      if (m_conflicts.size() > 1) {
        message += ", one of " + std::to_string(m_conflicts.size()) + " conflicts";
      }
      return WorkspaceError(ErrorCode::Undecided, std::move(message), conflict.path);
    }
    TreeEdit chosen = Chosen(conflict, decision->second);
    if (!(chosen.id == conflict.ours.id)) edits.push_back(std::move(chosen));
  }
  return ApplyEdits(*m_repository, m_sides.ours, edits);
}

std::vector<TreeChange> FilesChanged(const cow_ptr<Tree>& before, const cow_ptr<Tree>& after) {
  return FindTreeChanges(before, after, {.findLikeMoves = false}).value();
}

Result<MergeSides> SidesOf(IRepository& repository, const std::vector<cow_ptr<Commit>>& bases,
                           const cow_ptr<Tree>& ours, const cow_ptr<Tree>& theirs,
                           Reporter& reporter) {
  MergeSides sides{bases.empty() ? EmptyTree() : RootOf(bases.front()), ours, theirs};
  for (std::size_t i = 1; i < bases.size(); ++i) {
    const auto below = FindMergeBases(repository, bases.front(), bases[i], reporter);
    if (!below) return below.error();
    const cow_ptr<Tree> root = below->empty() ? EmptyTree() : RootOf(below->front());
    const Result<TreeMerge> merge = MergeTrees(root, sides.base, RootOf(bases[i]), reporter);
    if (!merge) return merge.error();
    std::vector<TreeEdit> edits = merge->edits;
    for (const TreeConflict& conflict : merge->conflicts) {
      const std::string text = "The bases of a merge disagree about " + conflict.path + ": " +
                               ToUtf8(conflict.ours.id.View()) + " or " +
                               ToUtf8(conflict.theirs.id.View());
      const Id id = Store(repository, Bytes(text).GetBuffer());
      sides.unknown.insert(id);
      edits.push_back({conflict.path, id});
    }
    sides.base = ApplyEdits(repository, sides.base, edits);
  }
  return sides;
}

}  // namespace TalVcs::Kit
