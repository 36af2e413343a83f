#include <kit/open/try.h>
#include <kit/sharing/remote.h>
#include <kit/workspace/internal/checked_text.h>
#include <kit/workspace/internal/replay.h>
#include <kit/workspace/workspace.h>

#include <algorithm>
#include <utility>

namespace TalVcs::Kit {

Result<SyncReport> Workspace::Pull(Remote& remote, const SyncOptions& options) {
  return Try([&]() -> Result<SyncReport> {
    Status status = m_state->NeedNoEdits("pull");
    if (!status) return status.error();
    const Result<FetchReport> fetched =
        remote.Fetch(*m_state->store, {.branches = {GetBranch()}, .progress = options.progress});
    if (!fetched) return fetched.error();
    status = m_state->TakeOver(fetched->moves);
    if (!status) return status.error();
    SyncReport report;
    report.fetchedObjects = fetched->writtenObjects;
    if (fetched->heads.empty()) return report;
    const Result<cow_ptr<TalVcs::Commit>> head = m_state->FindCommit(fetched->heads.front().id);
    if (!head) return head.error();
    Replay replay(*m_state, options.decide);
    const Result<std::uint64_t> replayed = replay.Run(*head, options.progress);
    report.remoteHead = (*head)->GetId();
    report.undecided = replay.GetUndecided();
    if (!replayed && !report.undecided) return replayed.error();
    if (replayed) report.replayedVersions = *replayed;
    return report;
  });
}

Result<PushReport> Workspace::Push(Remote& remote, const PushOptions& options) {
  return Try([&]() -> Result<PushReport> {
    Result<PushReport> pushed = remote.Push(*m_state->store, GetBranch(), options);
    if (!pushed) return pushed;
    const Status status = m_state->TakeOver(pushed->moves);
    if (!status) return status.error();
    return pushed;
  });
}

Result<bool> Workspace::Watch(const HeadWaitOptions& options) const {
  std::vector<Head> seen;
  for (const auto& [name, id] : m_state->GetStorage().GetHeadIds()) {
    if (!IsEmpty(id)) seen.push_back({ToUtf8(name), id});
  }
  std::ranges::sort(seen, {}, &Head::name);
  const Result<std::vector<Head>> heads = WaitForHeads(*m_state->store, seen, options);
  if (!heads) return heads.error();
  return *heads != seen;
}

}  // namespace TalVcs::Kit
