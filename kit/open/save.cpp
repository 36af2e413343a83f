#include <kit/open/internal/errors.h>
#include <kit/open/internal/head_moves.h>
#include <kit/open/internal/missing_objects.h>
#include <kit/open/internal/object_writer.h>
#include <kit/open/internal/opened_access.h>
#include <kit/open/save.h>
#include <kit/open/try.h>
#include <talvcs/repository/irepository.h>

#include <algorithm>
#include <utility>

namespace TalVcs::Kit {

namespace {

/// Returns the branches of the repository that have a head, sorted by name, without reading.
std::vector<Head> BranchesOf(const IObjectsStorage& storage) {
  std::vector<Head> branches;
  if (const OnDemandStorage* on_demand = OnDemandStorage::From(&storage)) {
    for (const auto& [name, id] : on_demand->GetHeadIds()) branches.push_back({ToUtf8(name), id});
  } else {
    for (const auto& [name, head] : storage.GetRefs()) {
      if (head) branches.push_back({ToUtf8(name), head->GetId()});
    }
  }
  std::erase_if(branches, [](const Head& branch) { return branch.id.View().IsEmpty(); });
  std::sort(branches.begin(), branches.end(),
            [](const Head& a, const Head& b) { return a.name < b.name; });
  return branches;
}

/// Where a save takes the branches to be.
struct SaveBase {
  std::vector<Head> heads;
  bool removesBranches = true;
  bool movesForwardOnly = false;
};

/// One attempt to save.
class Saving {
 public:
  /// `opened` is the state of the repository if it was opened from this very store, else null.
  Saving(IRepository& repository, IObjectStore& store, OpenedState* opened,
         const Progress& progress)
      : m_repository(repository),
        m_store(store),
        m_opened(opened),
        m_reporter(progress),
        m_writer(store, m_reporter) {}

  Result<SaveReport> Run(const SaveBase& base, const std::vector<Head>& actual) {
    SaveReport report;
    report.heads = BranchesOf(*m_repository.GetStorage());
    std::vector<HeadMove> moves = MovesOf(base, report.heads);
    // A save whose answer was lost may have moved the branch already.
    const HeadIndex there(actual);
    std::erase_if(moves,
                  [&there](const HeadMove& move) { return there.IdOf(move.name) == move.desired; });
    Status status = CheckMoves(moves, base, actual);
    if (status) status = WriteMissing(moves);
    if (status && m_opened != nullptr) FindUnsaved(*m_opened);
    if (status && !moves.empty()) status = MoveHeadsSurely(m_store, moves);
    if (!status) return status.error();
    report.writtenObjects = m_writer.WrittenObjects();
    report.writtenBytes = m_writer.WrittenBytes();
    return report;
  }

 private:
  // Makes ready for `MarkSaved`, after which what was new is read like the rest. That must not fail
  // once the heads have moved.
  static void FindUnsaved(OpenedState& opened) {
    opened.Storage()->VisitUnsaved(
        {opened.loaded.get(), [](void* loaded, const Id& id, const Buffer& packed) {
           if (loaded != nullptr) static_cast<LoadedObjects*>(loaded)->Add(id, packed);
         }});
  }

  static std::vector<HeadMove> MovesOf(const SaveBase& base, const std::vector<Head>& branches) {
    std::vector<HeadMove> moves;
    const HeadIndex known(base.heads);
    for (const Head& branch : branches) {
      const Id before = known.IdOf(branch.name);
      if (!(before == branch.id)) moves.push_back({branch.name, before, branch.id});
    }
    if (!base.removesBranches) return moves;
    const HeadIndex present(branches);
    for (const Head& head : base.heads) {
      if (head.id.View().IsEmpty() || present.Contains(head.name)) continue;
      moves.push_back({head.name, head.id, Id()});
    }
    return moves;
  }

  // Refuses early what the store would refuse in the end.
  Status CheckMoves(const std::vector<HeadMove>& moves, const SaveBase& base,
                    const std::vector<Head>& actual) const {
    const HeadIndex there(actual);
    for (const HeadMove& move : moves) {
      if (move.name.find('\0') != std::string::npos) {
        return MakeError(ErrorCode::BadName,
                         "cannot save branch " + Quoted(move.name) + ": its name has U+0000 in it",
                         move.name, "nothing was written");
      }
      if (!(there.IdOf(move.name) == move.expected)) {
        return ConflictOf(moves, actual, move.name, "another save has moved it");
      }
      if (base.movesForwardOnly && !Follows(move)) {
        return ConflictOf(moves, actual, move.name,
                          "the store has commits that are not in the repository's history");
      }
    }
    return {};
  }

  bool Follows(const HeadMove& move) const {
    if (move.expected.View().IsEmpty()) return true;
    cow_ptr<Commit> at = m_repository.GetHead(ToWide(move.name));
    while (at && !(at->GetId() == move.expected)) at = at->GetParent();
    return static_cast<bool>(at);
  }

  Status WriteMissing(const std::vector<HeadMove>& moves) {
    MissingObjects missing(m_store, m_reporter);
    Status status = m_reporter.Begin("check");
    for (const HeadMove& move : moves) {
      if (!status) return status;
      if (move.desired.View().IsEmpty()) continue;
      status = missing.Collect(move.name, m_repository.GetHead(ToWide(move.name)));
    }
    if (status) status = m_reporter.End();
    if (status) status = m_reporter.Begin("write", missing.GetCount());
    if (status) status = missing.WriteTo(m_writer);
    if (status) status = m_reporter.End();
    return status;
  }

  IRepository& m_repository;
  IObjectStore& m_store;
  OpenedState* m_opened;
  Reporter m_reporter;
  ObjectWriter m_writer;
};

/// Attempts a save until no clean-up comes between. `base_of` returns the base, given the heads of
/// the store.
template <class BaseOf>
Result<SaveReport> SaveRepeatedly(IRepository& repository, IObjectStore& store, OpenedState* opened,
                                  const Progress& progress, BaseOf base_of) {
  for (int attempt = 1;; ++attempt) {
    Result<SaveReport> report = Try([&]() -> Result<SaveReport> {
      const Result<std::vector<Head>> actual = store.Heads();
      if (!actual) return actual.error();
      return Saving(repository, store, opened, progress).Run(base_of(*actual), *actual);
    });
    if (report || report.error().code != ErrorCode::Busy || attempt == kMostAttempts) return report;
  }
}

bool IsDamaged(const BranchReport& branch) noexcept {
  return branch.state == BranchState::Partial || branch.state == BranchState::Lost;
}

/// Fails if a branch that did not come in whole isn't accepted by name.
Status CheckWhole(const HistoryReport& report, const std::vector<std::string>& accepted) {
  for (const BranchReport& branch : report.branches) {
    if (!IsDamaged(branch) || std::ranges::find(accepted, branch.name) != accepted.end()) continue;
    return MakeError(ErrorCode::Damaged,
                     "cannot save: branch " + Quoted(branch.name) +
                         " did not come in whole, and SaveOptions::acceptDamaged does not name it",
                     branch.name, "nothing was written");
  }
  return {};
}

/// Adds the damaged branches that were left out and that a new one of their name replaces.
void AddReplaced(OpenedState& opened, std::vector<Head>& heads) {
  if (std::ranges::none_of(opened.report.branches, IsDamaged)) return;
  const std::vector<Head> branches = BranchesOf(*opened.Storage());
  const HeadIndex present(branches);
  const HeadIndex known(opened.heads);
  for (const BranchReport& branch : opened.report.branches) {
    if (IsDamaged(branch) && present.Contains(branch.name) && !known.Contains(branch.name)) {
      heads.push_back({branch.name, branch.head});
    }
  }
}

/// Keeps the name of the current branch. It is no part of the history, so a failure doesn't fail
/// the save; the next one tries again.
void SaveCurrentBranch(OpenedState& opened) {
  const std::string branch = ToUtf8(opened.repository.GetCurentBranch());
  if (opened.savedBranch == branch) return;
  if (opened.store->SetValue(kBranchValue, branch)) opened.savedBranch = branch;
}

}  // namespace

Result<SaveReport> Save(OpenedRepository& repository, const SaveOptions& options) {
  OpenedState& opened = OpenedAccess::StateOf(repository);
  if (opened.Storage() == nullptr) {
    return MakeError(ErrorCode::NotFound, "cannot save: the repository is not the one of the store",
                     {}, "nothing was written");
  }
  const Status whole = CheckWhole(opened.report, options.acceptDamaged);
  if (!whole) return whole.error();
  SaveBase base;
  base.heads = opened.heads;
  AddReplaced(opened, base.heads);
  Result<SaveReport> report =
      SaveRepeatedly(opened.repository, *opened.store, &opened, options.progress,
                     [&base](const std::vector<Head>&) -> const SaveBase& { return base; });
  if (!report) return report;
  opened.Storage()->MarkSaved();
  opened.heads = report->heads;
  SaveCurrentBranch(opened);
  return report;
}

Result<SaveReport> Save(IRepository& repository, IObjectStore& store, const SaveOptions& options) {
  if (repository.GetStorage() == nullptr) {
    return MakeError(ErrorCode::NotFound, "cannot save: the repository has no storage", {},
                     "nothing was written");
  }
  return SaveRepeatedly(repository, store, nullptr, options.progress,
                        [&](const std::vector<Head>& actual) {
                          SaveBase base;
                          base.heads = options.expected ? *options.expected : actual;
                          base.removesBranches = options.expected || options.replaceHeads;
                          base.movesForwardOnly = !options.expected && !options.replaceHeads;
                          return base;
                        });
}

}  // namespace TalVcs::Kit
