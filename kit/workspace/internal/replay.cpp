#include <kit/open/internal/reporter.h>
#include <kit/text.h>
#include <kit/workspace/internal/merge_plan.h>
#include <kit/workspace/internal/replay.h>

#include <utility>

namespace TalVcs::Kit {

std::vector<cow_ptr<Commit>> Replay::VersionsSince(const cow_ptr<Commit>& fork) const {
  std::vector<cow_ptr<Commit>> versions;
  for (cow_ptr<Commit> at = m_state.GetHead(); at && (!fork || !(at->GetId() == fork->GetId()));
       at = at->GetParent()) {
    versions.push_back(at);
  }
  return versions;
}

Result<cow_ptr<Tree>> Replay::FilesWith(const cow_ptr<Commit>& version, const cow_ptr<Commit>& top,
                                        const Progress& progress) {
  Reporter reporter(progress);
  Status status = reporter.Begin("merge");
  if (!status) return std::move(status).error();
  const Result<MergePlan> plan = MergePlan::Make(
      m_state.GetRepository(), {RootOf(version->GetParent()), RootOf(top), RootOf(version)},
      m_state.options.mergers, reporter);
  if (!plan) return plan.error();
  if (plan->GetConflicts().empty()) return plan->Decide({});
  MergePreview preview;
  preview.action = MergeAction::CherryPick;
  preview.version = m_state.VersionOf(version);
  preview.head = top->GetId();
  preview.changes = FilesChanged(RootOf(top), plan->WithoutConflicts());
  preview.conflicts = plan->GetConflicts();
  Decisions decisions;
  if (m_decide) {
    Result<Decisions> decided = m_decide(preview);
    if (!decided) return std::move(decided).error();
    decisions = *std::move(decided);
  }
  Result<cow_ptr<Tree>> files = plan->Decide(decisions);
  if (!files && files.error().code == ErrorCode::Undecided) m_undecided = std::move(preview);
  return files;
}

Result<cow_ptr<Commit>> Replay::PutOnTop(const cow_ptr<Commit>& version, const cow_ptr<Commit>& top,
                                         const Progress& progress) {
  const Result<cow_ptr<Tree>> files = FilesWith(version, top, progress);
  if (!files) return files.error();
  // What the version changed is there already.
  const bool changes_files = !(RootOf(version)->GetId() == RootOf(version->GetParent())->GetId());
  if (changes_files && (*files)->GetId() == RootOf(top)->GetId()) return top;
  const Version old = DescribeCommit(*version);
  NewVersion next;
  next.parent = top;
  next.tree = *files;
  next.message = ParseDescription(ToUtf8(version->GetDesciption()));
  for (Id* id : {&next.message.annotations.undoes, &next.message.annotations.redoes}) {
    const auto replaced = m_replaced.find(*id);
    if (replaced != m_replaced.end()) *id = replaced->second;
  }
  next.signature = {old.author, old.email, old.time, old.offset};
  Result<cow_ptr<Commit>> made = m_state.Make(next);
  if (!made) return made;
  m_replaced.emplace(old.id, (*made)->GetId());
  ++m_count;
  return made;
}

Status Replay::MakeAll(const std::vector<cow_ptr<Commit>>& versions, cow_ptr<Commit>& top,
                       const Progress& progress) {
  Reporter reporter(progress);
  Status status = reporter.Begin("rebase", versions.size());
  for (auto version = versions.rbegin(); version != versions.rend(); ++version) {
    if (!status) return status;
    Result<cow_ptr<Commit>> made = PutOnTop(*version, top, progress);
    if (!made) return std::move(made).error();
    top = *std::move(made);
    status = reporter.Add(1);
  }
  return status ? reporter.End() : status;
}

Result<std::uint64_t> Replay::Run(const cow_ptr<Commit>& onto, const Progress& progress) {
  const cow_ptr<Commit> fork = m_state.GetRepository().GetCommonBase(m_state.GetHead(), onto);
  if (fork && fork->GetId() == onto->GetId()) return std::uint64_t{0};  // it is on top already
  const std::vector<cow_ptr<Commit>> versions = VersionsSince(fork);
  cow_ptr<Commit> top = onto;
  Status status = MakeAll(versions, top, progress);
  const cow_ptr<Tree> files = RootOf(top);
  if (status) status = m_state.MoveBranches({{m_state.GetBranch(), top}}, files, progress);
  if (!status) {
    m_state.GetRepository().UpdateStorage();
    return status.error();
  }
  return m_count;
}

}  // namespace TalVcs::Kit
