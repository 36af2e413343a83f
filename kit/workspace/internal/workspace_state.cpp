#include <kit/open/internal/opened_access.h>
#include <kit/open/save.h>
#include <kit/store/quietly.h>
#include <kit/text.h>
#include <kit/workspace/internal/checked_text.h>
#include <kit/workspace/internal/workspace_state.h>

#include <algorithm>

namespace TalVcs::Kit {

namespace {

constexpr std::int64_t kTicksOfMinute = 600000000;

// A storage keeps all objects that were saved. So a workspace that saves all day would grow by
// some ten kilobytes for each save.
constexpr int kMostSavesInMemory = 100;

// Versions that are read before those that were passed are freed: some megabytes.
constexpr int kMostPassedVersions = 4096;

/// Puts branches back at its end unless the operation has succeeded, also when a callback of the
/// host throws.
class Rollback {
 public:
  explicit Rollback(WorkspaceState& state) : m_state(state) {}
  Rollback(const Rollback&) = delete;
  Rollback& operator=(const Rollback&) = delete;
  ~Rollback() {
    if (!m_isDone) m_state.PutBack(std::move(m_branches), std::nullopt);
  }

  void Add(FormerBranch branch) { m_branches.push_back(std::move(branch)); }
  void Dismiss() noexcept { m_isDone = true; }
  const std::vector<FormerBranch>& GetBranches() const noexcept { return m_branches; }

 private:
  WorkspaceState& m_state;
  std::vector<FormerBranch> m_branches;
  bool m_isDone = false;
};

/// Returns the error of a save as hosts of a workspace act on it.
Error ErrorOfSave(Error error) {
  if (error.code == ErrorCode::Conflict) {
    error.code = ErrorCode::HeadMoved;
    error.unchanged = "nothing was saved and pending edits stay; reload, then try again";
  }
  return error;
}

/// Refuses what the text of a commit can't hold: seconds of more than 32 bits, and an offset west
/// of Greenwich of less than an hour.
Status CheckTime(const Signature& signature) {
  const auto seconds = signature.time.time_since_epoch().count();
  if (seconds != static_cast<std::int32_t>(seconds)) {
    return WorkspaceError(ErrorCode::Unsupported,
                          "the time " + std::to_string(seconds) + " has more than 32 bits", {});
  }
  if (signature.offset.count() < 0 && signature.offset > -std::chrono::hours(1)) {
    return WorkspaceError(
        ErrorCode::Unsupported,
        "the offset of " + std::to_string(signature.offset.count()) + " minutes has no hour", {});
  }
  return {};
}

/// Returns an author or an e-mail address as the core takes it. Refuses what the text of a commit
/// would give back otherwise.
Result<WideString> CheckedPerson(const std::string& text, std::string_view kind) {
  for (const std::string_view bad : {" <", "\ncommitter "}) {
    if (text.find(bad) != text.npos && (bad != " <" || kind == "author")) {
      return WorkspaceError(ErrorCode::BadText,
                            "the " + std::string(kind) + " has \"" + std::string(bad) + "\" in it",
                            text);
    }
  }
  return CheckedText(text, kind);
}

Error NoSuch(std::string_view kind, std::string_view name) {
  return WorkspaceError(ErrorCode::NotFound,
                        "there is no " + std::string(kind) + " \"" + std::string(name) + "\"",
                        name);
}

}  // namespace

FormerBranch::FormerBranch(IObjectsStorage& storage, WideString name)
    : m_name(std::move(name)),
      m_existed(storage.BranchExist(m_name)),
      m_head(m_existed ? storage.GetHead(m_name) : nullptr) {}

void FormerBranch::Set(IObjectsStorage& storage, const cow_ptr<Commit>& head) const {
  storage.RemoveBranch(m_name);
  if (head) storage.CreateBranch(m_name, head);
}

void FormerBranch::PutBack(IObjectsStorage& storage) const {
  storage.RemoveBranch(m_name);
  if (m_existed) storage.CreateBranch(m_name, m_head);
}

Version DescribeCommit(const Commit& commit) {
  AnnotatedMessage text = ParseDescription(ToUtf8(commit.GetDesciption()));
  Version version;
  version.id = commit.GetId();
  const cow_ptr<Commit> parent = commit.GetParent();
  if (parent) version.parent = parent->GetId();
  version.summary = text.message.substr(0, text.message.find('\n'));
  version.message = std::move(text.message);
  version.author = ToUtf8(commit.GetAuthorName());
  version.email = ToUtf8(commit.GetAuthorEmail());
  version.time = std::chrono::sys_seconds(std::chrono::seconds(commit.GetCommitTime().ToTimeT()));
  version.offset = std::chrono::minutes(commit.GetCommitTimezoneBias().ticks / kTicksOfMinute);
  version.isMachineMade = text.annotations.isMachineMade;
  version.isCheckpoint = text.annotations.isCheckpoint;
  version.gesture = std::move(text.annotations.gesture);
  version.undoes = text.annotations.undoes;
  version.redoes = text.annotations.redoes;
  version.merges = std::move(text.annotations.merges);
  return version;
}

cow_ptr<Tree> RootOf(const cow_ptr<Commit>& commit) {
  cow_ptr<Tree> root;
  if (commit) {
    if (const cow_ptr<CommitTree> tree = commit->GetTree()) root = tree->GetRoot();
  }
  return root ? root : EmptyTree();
}

WorkspaceState::WorkspaceState(std::shared_ptr<IObjectStore> objects, OpenedRepository repository,
                               const WorkspaceOptions& wishes)
    : store(std::move(objects)),
      opened(std::move(repository)),
      options(wishes),
      base(RootOf(GetHead())),
      draft(GetRepository(), base) {}

Repository& WorkspaceState::GetRepository() {
  Repository& repository = opened.GetRepository();
  if (formerBranches.empty() && !formerCurrent) return repository;
  for (const FormerBranch& branch : formerBranches) branch.PutBack(*repository.GetStorage());
  if (formerCurrent) repository.Checkout(*formerCurrent);
  formerBranches.clear();
  formerCurrent.reset();
  repository.UpdateStorage();
  return repository;
}

void WorkspaceState::PutBack(std::vector<FormerBranch> branches,
                             std::optional<WideString> current) noexcept {
  formerBranches = std::move(branches);
  formerCurrent = std::move(current);
  // What fails is done when memory suffices.
  Quietly([this] { GetRepository(); });
}

OnDemandStorage& WorkspaceState::GetStorage() {
  return static_cast<OnDemandStorage&>(*GetRepository().GetStorage());
}

std::string WorkspaceState::GetBranch() { return ToUtf8(GetRepository().GetCurentBranch()); }

cow_ptr<Commit> WorkspaceState::GetHead() { return GetRepository().GetHead(); }

Result<cow_ptr<Commit>> WorkspaceState::FindCommit(const Id& id) {
  cow_ptr<Commit> commit = GetRepository().GetCommitFromStorage(id);
  if (!commit) return NoSuch("version", ToUtf8(id.View()));
  return commit;
}

Result<cow_ptr<Commit>> WorkspaceState::FindBranch(std::string_view name) {
  const Result<WideString> wide = CheckedText(name, "name of the branch");
  if (!wide) return wide.error();
  cow_ptr<Commit> commit = GetRepository().GetHead(*wide);
  if (!commit) return NoSuch("branch", name);
  return commit;
}

Result<cow_ptr<Commit>> WorkspaceState::FindBranchOrTag(std::string_view name) {
  Result<cow_ptr<Commit>> branch = FindBranch(name);
  if (branch || branch.error().code != ErrorCode::NotFound) return branch;
  Result<cow_ptr<Commit>> tag = FindBranch(std::string(kTagPrefix).append(name));
  return tag ? tag : branch;
}

void WorkspaceState::BeginDraft(cow_ptr<Tree> files) {
  base = std::move(files);
  draft = Draft(GetRepository(), base);
  GetRepository().UpdateStorage();
}

bool WorkspaceState::HasPendingEdits() { return !(draft.GetTree()->GetId() == base->GetId()); }

Status WorkspaceState::NeedNoEdits(std::string_view operation) {
  if (!HasPendingEdits()) return {};
  return WorkspaceError(ErrorCode::Undecided,
                        "cannot " + std::string(operation) +
                            ": there are pending edits; commit or discard them first",
                        GetBranch());
}

Signature WorkspaceState::SignatureOf(const std::string& author, const std::string& email,
                                      std::optional<std::chrono::sys_seconds> time) const {
  Signature signature;
  signature.author = author.empty() && email.empty() ? options.author : author;
  signature.email = author.empty() && email.empty() ? options.email : email;
  if (time) {
    signature.time = *time;
  } else if (options.clock) {
    signature.time = options.clock();
  } else {
    signature.time = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  }
  signature.offset = options.offset;
  return signature;
}

Result<cow_ptr<Commit>> WorkspaceState::Make(const NewVersion& version) {
  const Result<WideString> description = CheckedText(DescriptionOf(version.message), "message");
  if (!description) return description.error();
  const Result<WideString> author = CheckedPerson(version.signature.author, "author");
  if (!author) return author.error();
  const Result<WideString> email = CheckedPerson(version.signature.email, "e-mail address");
  if (!email) return email.error();
  const Status time = CheckTime(version.signature);
  if (!time) return time.error();
  Repository& repository = GetRepository();
  auto commit = std::make_unique<TalVcs::Commit>(version.parent, false);
  commit->ReplaceRoot(&repository, version.tree);
  commit->SetDescription(*description);
  commit->SetAuthorName(*author);
  commit->SetAuthorEmail(*email);
  commit->SetCommitTime(Time::FromTimeT(version.signature.time.time_since_epoch().count()));
  commit->SetCommitTimezoneBias({version.signature.offset.count() * kTicksOfMinute});
  return repository.SyncWithStorage(cow_ptr<TalVcs::Commit>(dll_wrapped_shared(std::move(commit))));
}

Status WorkspaceState::MoveBranches(const std::vector<BranchMove>& moves,
                                    const cow_ptr<Tree>& files, const Progress& progress) {
  Rollback rollback(*this);
  for (const BranchMove& move : moves) {
    rollback.Add(FormerBranch(GetStorage(), ToWide(move.name)));
  }
  for (std::size_t i = 0; i < moves.size(); ++i) {
    rollback.GetBranches()[i].Set(GetStorage(), moves[i].to);
  }
  const Result<SaveReport> saved = Save(opened, {.progress = progress});
  if (!saved) return ErrorOfSave(saved.error());
  rollback.Dismiss();
  lastCheckpoint.reset();
  if (files) BeginDraft(files);
  if (++savesInMemory == kMostSavesInMemory) {
    savesInMemory = 0;
    GetStorage().Trim();
  }
  for (std::size_t i = 0; i < moves.size(); ++i) {
    const Id before = rollback.GetBranches()[i].GetId();
    const Id after = moves[i].to ? moves[i].to->GetId() : Id();
    if (observed) observed->insert_or_assign(moves[i].name, after);
    if (observer && !(before == after)) observer({moves[i].name, before, after, false});
  }
  return {};
}

Status WorkspaceState::TakeOver(const std::vector<HeadMove>& moves) {
  std::vector<Head>& saved = OpenedAccess::StateOf(opened).heads;
  for (const HeadMove& move : moves) {
    cow_ptr<Commit> head;
    if (!IsEmpty(move.desired)) {
      Result<cow_ptr<Commit>> found = FindCommit(move.desired);
      if (!found) return std::move(found).error();
      head = *std::move(found);
    }
    FormerBranch(GetStorage(), ToWide(move.name)).Set(GetStorage(), head);
    const auto place = std::ranges::lower_bound(saved, move.name, {}, &Head::name);
    const bool is_known = place != saved.end() && place->name == move.name;
    if (head && is_known) {
      place->id = move.desired;
    } else if (head) {
      saved.insert(place, {move.name, move.desired});
    } else if (is_known) {
      saved.erase(place);
    }
    if (observed) observed->insert_or_assign(move.name, move.desired);
    if (observer) observer({move.name, move.expected, move.desired, true});
  }
  return {};
}

Result<Version> WorkspaceState::PutOnBranch(const NewVersion& version, const Progress& progress) {
  const Result<cow_ptr<Commit>> commit = Make(version);
  if (!commit) return commit.error();
  const Status status = MoveBranches({{GetBranch(), *commit}}, version.tree, progress);
  if (!status) return status.error();
  return VersionOf(*commit);
}

void WorkspaceState::PassVersion() {
  if (++passedVersions < kMostPassedVersions) return;
  passedVersions = 0;
  GetStorage().Trim();
}

NamesOfIds WorkspaceState::NamesOfHeads() {
  NamesOfIds names;
  for (const auto& [name, id] : GetStorage().GetHeadIds()) names.emplace(id, ToUtf8(name));
  return names;
}

Version WorkspaceState::VersionOf(const cow_ptr<Commit>& commit) {
  return VersionOf(commit, NamesOfHeads());
}

Version WorkspaceState::VersionOf(const cow_ptr<Commit>& commit, const NamesOfIds& names) {
  Version version = DescribeCommit(*commit);
  const auto [begin, end] = names.equal_range(version.id);
  for (auto at = begin; at != end; ++at) {
    const std::string& name = at->second;
    if (name.starts_with(kTagPrefix)) {
      version.tags.push_back(name.substr(kTagPrefix.size()));
    } else {
      version.branches.push_back(name);
    }
  }
  std::ranges::sort(version.branches);
  std::ranges::sort(version.tags);
  return version;
}

}  // namespace TalVcs::Kit
