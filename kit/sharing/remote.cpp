#include <kit/open/internal/errors.h>
#include <kit/open/internal/head_moves.h>
#include <kit/open/internal/opened_access.h>
#include <kit/sharing/internal/transfer.h>
#include <kit/sharing/remote.h>
#include <kit/store/internal/sound_value.h>

#include <algorithm>
#include <utility>

namespace TalVcs::Kit {

namespace {

constexpr char kFirstBranch[] = "master";

std::vector<Id> IdsOf(std::span<const Head> heads) {
  std::vector<Id> ids;
  for (const Head& head : heads) {
    if (!head.id.View().IsEmpty()) ids.push_back(head.id);
  }
  return ids;
}

/// Returns the branch that the last session worked on, else "master", else the first.
Result<std::string> ChooseMainBranch(IObjectStore& store, std::span<const Head> heads) {
  const Result<std::optional<std::string>> saved = ReadSoundValue(store, kBranchValue);
  if (!saved) return saved.error();
  for (const std::string& name : {saved->value_or(kFirstBranch), std::string(kFirstBranch)}) {
    if (!HeadOf(heads, name).View().IsEmpty()) return name;
  }
  return heads.empty() ? kFirstBranch : heads.front().name;
}

Status MoveIfNeeded(IObjectStore& store, std::span<const HeadMove> moves) {
  return moves.empty() ? Status() : MoveHeadsSurely(store, moves);
}

}  // namespace

Remote::Remote(std::shared_ptr<IObjectStore> store, std::string name)
    : m_store(std::move(store)), m_name(std::move(name)) {}
Remote::Remote(Remote&& other) noexcept = default;
Remote& Remote::operator=(Remote&& other) noexcept = default;
Remote::~Remote() = default;

std::string Remote::GetLocalBranch(std::string_view branch) const {
  return (m_name + "/").append(branch);
}

Result<std::vector<Head>> Remote::ReadHeads() {
  Result<std::vector<Head>> heads = m_store->Heads();
  if (heads) m_seen = *heads;
  return heads;
}

Result<std::string> Remote::FindMainBranch() {
  const Result<std::vector<Head>> heads = m_store->Heads();
  if (!heads) return heads.error();
  return ChooseMainBranch(*m_store, *heads);
}

/// Lets a store that has no branch of its own begin with the remote's main branch. Otherwise it
/// would open on a copy of a remote's branch, which the next fetch moves.
Status Remote::BeginBranch(IObjectStore& local, std::span<const Head> known) {
  const std::string prefix = GetLocalBranch({});
  for (const Head& head : known) {
    if (!head.name.starts_with(prefix)) return {};
  }
  const Result<std::optional<std::string>> saved = ReadSoundValue(local, kBranchValue);
  if (!saved) return saved.error();
  if (*saved || m_seen.empty()) return {};
  const Result<std::string> branch = ChooseMainBranch(*m_store, m_seen);
  if (!branch) return branch.error();
  return local.SetValue(kBranchValue, *branch);
}

Result<FetchReport> Remote::Fetch(IObjectStore& local, const FetchOptions& options) {
  for (int attempt = 1;; ++attempt) {
    Result<FetchReport> report = FetchOnce(local, options);
    if (report || attempt == kMostAttempts) return report;
    const ErrorCode code = report.error().code;
    if (code == ErrorCode::Damaged) {
      // A head that was moved may have left objects to a clean-up of the remote.
      const std::vector<Head> before = m_seen;
      const Result<std::vector<Head>> heads = ReadHeads();
      if (!heads || *heads == before) return report;
    } else if (code != ErrorCode::Busy && code != ErrorCode::Conflict) {
      return report;
    }
  }
}

Result<FetchReport> Remote::FetchOnce(IObjectStore& local, const FetchOptions& options) {
  Result<std::vector<Head>> heads = ReadHeads();
  if (!heads) return heads.error();
  const auto is_wanted = [&options](const std::string& name) {
    return options.branches.empty() ||
           std::ranges::find(options.branches, name) != options.branches.end();
  };
  std::erase_if(*heads, [&](const Head& head) { return !is_wanted(head.name); });
  const Result<std::vector<Head>> known = local.Heads();
  if (!known) return known.error();
  Reporter reporter(options.progress);
  Transfer transfer(*m_store, local, FarStore::Source, reporter);
  Status status = transfer.Run(IdsOf(*heads), IdsOf(*known));
  if (!status) return status.error();
  FetchReport report;
  const HeadIndex known_here(*known);
  for (const Head& head : *heads) {
    const std::string name = GetLocalBranch(head.name);
    const Id before = known_here.IdOf(name);
    if (!(before == head.id)) report.moves.push_back({name, before, head.id});
  }
  status = BeginBranch(local, *known);
  if (!status) return status.error();
  const std::string prefix = GetLocalBranch({});
  const HeadIndex there(*heads);
  for (const Head& head : *known) {
    if (!options.removesGone || !head.name.starts_with(prefix)) continue;
    const std::string name = head.name.substr(prefix.size());
    if (is_wanted(name) && there.IdOf(name).View().IsEmpty()) {
      report.moves.push_back({head.name, head.id, Id()});
    }
  }
  status = MoveIfNeeded(local, report.moves);
  if (!status) return status.error();
  report.heads = *std::move(heads);
  report.newCommits = transfer.NewCommits();
  report.writtenObjects = transfer.WrittenObjects();
  report.writtenBytes = transfer.WrittenBytes();
  return report;
}

Result<PushReport> Remote::Push(IObjectStore& local, std::string_view branch,
                                const PushOptions& options) {
  for (int attempt = 1;; ++attempt) {
    Result<PushReport> report = PushOnce(local, std::string(branch), options);
    if (report || report.error().code != ErrorCode::Busy || attempt == kMostAttempts) return report;
  }
}

Result<PushReport> Remote::PushOnce(IObjectStore& local, const std::string& branch,
                                    const PushOptions& options) {
  const Result<std::vector<Head>> ours = local.Heads();
  if (!ours) return ours.error();
  const Result<std::vector<Head>> theirs = ReadHeads();
  if (!theirs) return theirs.error();
  PushReport report;
  report.head = HeadOf(*ours, branch);
  if (report.head.View().IsEmpty()) {
    return MakeError(ErrorCode::NotFound,
                     "cannot push branch " + Quoted(branch) + ": there is no such branch", branch,
                     "nothing has changed");
  }
  const HeadMove move{branch, HeadOf(*theirs, branch), report.head};
  if (!(move.expected == move.desired)) {
    const Result<bool> follows =
        move.expected.View().IsEmpty() ? true : IsAncestor(local, move.expected, move.desired);
    if (!follows) return follows.error();
    if (!*follows) {
      return ConflictOf({&move, 1}, *theirs, branch, "the remote has versions that it lacks");
    }
    Reporter reporter(options.progress);
    Transfer transfer(local, *m_store, FarStore::Target, reporter);
    Status status = transfer.Run({&move.desired, 1}, IdsOf(*theirs), move.expected);
    if (status) status = MoveHeadsSurely(*m_store, {&move, 1});
    if (!status) return status.error();
    report.newCommits = transfer.NewCommits();
    report.writtenObjects = transfer.WrittenObjects();
    report.writtenBytes = transfer.WrittenBytes();
    std::erase_if(m_seen, [&](const Head& head) { return head.name == branch; });
    const auto place = std::ranges::lower_bound(m_seen, branch, {}, &Head::name);
    m_seen.insert(place, {branch, report.head});
  }
  const HeadMove copy{GetLocalBranch(branch), HeadOf(*ours, GetLocalBranch(branch)), report.head};
  // The push has happened. If its local copy can't be noted, the next fetch does it.
  const bool is_new = !(copy.expected == copy.desired);
  if (is_new && MoveHeadsSurely(local, {&copy, 1})) report.moves.push_back(copy);
  return report;
}

Result<bool> Remote::Watch(const HeadWaitOptions& options) {
  const Result<std::vector<Head>> heads = WaitForHeads(*m_store, m_seen, options);
  if (!heads) return heads.error();
  return *heads != m_seen;
}

}  // namespace TalVcs::Kit
