#include <tests/on_demand/lockstep.h>

#include <talvcs/storage/mem_objects_storage.h>
#include <tests/support/contents.h>

#include <numeric>

namespace TalVcs::Testing {

namespace {

std::vector<OnDemandStorage::BranchHead> NewHeads() { return {{Wide("master"), Id()}}; }

constexpr std::int64_t kFirstSecond = 1'700'000'000;

/// Writes to the map, which must already have what the object names.
void PutClosed(void* reader, const Id& id, const Buffer& packed) {
  auto& store = *static_cast<MapObjectReader*>(reader);
  for (const auto& [named, tree] : ObjectsNamedBy(packed)) {
    if (!store.objects.contains(named)) {
      throw Difference(Ascii(id) + " is written before " + Ascii(named));
    }
  }
  store.Put(id, packed);
}

}  // namespace

Lockstep::Lockstep(std::uint64_t seed)
    : m_random(seed), m_clock(kFirstSecond, m_random.OneIn(2) ? "UTC0" : "ZONE-5:30") {
  m_namesCollide = m_random.OneIn(4);
  m_readsFail = !m_random.OneIn(4);
  m_reader->passesAhead = m_random.OneIn(2);
  if (m_random.OneIn(3)) m_reader->failsWith = ObjectProblem::Unreadable;
  m_ordinary.repositories[0] = std::make_unique<Repository>(std::make_unique<MemObjectsStorage>());
  m_onDemand.repositories[0] =
      std::make_unique<Repository>(std::make_unique<OnDemandStorage>(m_reader, NewHeads()));
  for (Side* side : {&m_ordinary, &m_onDemand}) {
    side->repositories[1] = std::make_unique<Repository>(std::as_const(*side->repositories[0]));
    side->Forget();
  }
}

const std::vector<Lockstep::Kind>& Lockstep::Kinds() {
  static const std::vector<Kind> kinds = {
      {60, "commit", &Lockstep::CommitQuickly},
      {10, "draft", &Lockstep::MakeDraft},
      {25, "edit", &Lockstep::EditDraft},
      {6, "foreign_tree", &Lockstep::AddForeignTree},
      {4, "replace_root", &Lockstep::ReplaceRoot},
      {10, "commit_draft", &Lockstep::CommitDraft},
      {14, "create_branch", &Lockstep::CreateBranch},
      {8, "move_branch", &Lockstep::MoveBranch},
      {3, "remove_branch", &Lockstep::RemoveBranch},
      {22, "checkout", &Lockstep::Checkout},
      {24, "merge", &Lockstep::Merge},
      {3, "common_root", &Lockstep::EnsureCommonRoot},
      {2, "simplify", &Lockstep::Simplify},
      {1, "delete", &Lockstep::DeleteCommits},
      {5, "purge", &Lockstep::Purge},
      {3, "copy", &Lockstep::CopyRepository},
      {14, "list", &Lockstep::ListTree},
      {14, "diff", &Lockstep::CompareTrees},
      {12, "read", &Lockstep::ReadPath},
      {5, "history", &Lockstep::ReadHistory},
      {10, "common_base", &Lockstep::FindCommonBase},
      {4, "find_branches", &Lockstep::FindBranches},
      {6, "find_id", &Lockstep::FindById},
      {8, "hold", &Lockstep::Hold},
      {3, "drop", &Lockstep::DropHandles},
      {8, "edit_held", &Lockstep::EditHeldTree},
      {6, "merge_trees", &Lockstep::MergeTrees},
      {12, "save", &Lockstep::Save},
      {14, "reopen", &Lockstep::Reopen},
      {12, "trim", &Lockstep::Trim},
  };
  return kinds;
}

void Lockstep::Step() {
  // No two steps commit in one second, so that the copy doesn't make a commit again by chance.
  m_clock.Advance(1);
  const auto& kinds = Kinds();
  std::size_t left = m_random.Below(
      std::accumulate(kinds.begin(), kinds.end(), std::size_t{0},
                      [](std::size_t sum, const Kind& k) { return sum + k.weight; }));
  auto kind = kinds.begin();
  while (left >= kind->weight) left -= (kind++)->weight;
  m_operation = kind->name;
  (this->*kind->run)();
  CompareHeads();
  if (m_namesCollide && HidesAnyTree(*m_ordinary.repositories[0]->GetStorage())) SaveAndReopen(0);
  if (m_namesCollide && HidesAnyTree(*m_ordinary.repositories[1]->GetStorage())) SaveAndReopen(1);
  ++m_counts[kind->name];
}

void Lockstep::Both(const Operation& operation) {
  const std::string expected = operation(m_ordinary);
  const std::string found = OnDemandResult(operation);
  if (found != expected) throw Difference("on demand " + found + "\nordinary " + expected);
}

std::string Lockstep::OnDemandResult(const Operation& operation) {
  while (m_readsFail && m_random.OneIn(3)) {
    const auto before = HeadsOnDemand();
    m_reader->failAfter = 1 + m_random.Below(5);
    bool failed = false;
    std::string result;
    try {
      result = operation(m_onDemand);
    } catch (const StoreFailure&) {
      failed = true;
    } catch (const ObjectUnavailable& problem) {
      failed = problem.GetProblem() == ObjectProblem::Unreadable;
      if (!failed) throw Difference(problem.what());
    }
    m_reader->failAfter = 0;
    if (!failed) return result;
    ++m_counts["failed_reads"];
    if (HeadsOnDemand() != before) throw Difference("a failed read moved a branch");
  }
  return operation(m_onDemand);
}

std::vector<std::map<std::string, std::string>> Lockstep::HeadsOnDemand() const {
  return {HeadsOf(*m_onDemand.repositories[0]), HeadsOf(*m_onDemand.repositories[1])};
}

void Lockstep::CompareHeads() {
  for (std::size_t index = 0; index < 2; ++index) {
    if (HeadsOf(*m_onDemand.repositories[index]) != HeadsOf(*m_ordinary.repositories[index])) {
      throw Difference("the heads differ");
    }
    if (!(m_onDemand.repositories[index]->GetCurentBranch() ==
          m_ordinary.repositories[index]->GetCurentBranch())) {
      throw Difference("the current branches differ");
    }
  }
}

void Lockstep::CompareAll() {
  m_operation = "compare_all";
  for (std::size_t index = 0; index < 2; ++index) {
    Both([index](Side& side) { return DescribeAll(*side.repositories[index]); });
  }
}

OnDemandStorage& Lockstep::Storage(std::size_t repository) {
  return static_cast<OnDemandStorage&>(*m_onDemand.repositories[repository]->GetStorage());
}

std::uint64_t Lockstep::WriteUnsaved(std::size_t repository) {
  OnDemandStorage& storage = Storage(repository);
  const std::uint64_t calls = m_reader->calls;
  const std::uint64_t count = storage.VisitUnsaved({m_reader.get(), PutClosed});
  storage.MarkSaved();
  if (m_reader->calls != calls) throw Difference("a save reads");
  if (storage.VisitUnsaved({m_reader.get(), PutClosed}) != 0)
    throw Difference("a save wrote twice");
  storage.MarkSaved();
  return count;
}

void Lockstep::Save() { WriteUnsaved(PickRepository()); }

void Lockstep::SaveAndReopen(std::size_t repository) {
  WriteUnsaved(repository);
  m_ordinary.Forget();
  m_onDemand.Forget();
  const auto heads = Storage(repository).GetHeadIds();
  auto reopened = std::make_unique<Repository>(std::make_unique<OnDemandStorage>(m_reader, heads));
  reopened->Checkout(m_onDemand.repositories[repository]->GetCurentBranch());
  m_onDemand.repositories[repository] = std::move(reopened);
  m_ordinary.repositories[repository] = Rebuild(*m_ordinary.repositories[repository]);
  for (Side* side : {&m_ordinary, &m_onDemand}) {
    side->repositories[1 - repository] =
        std::make_unique<Repository>(std::as_const(*side->repositories[repository]));
  }
}

void Lockstep::Reopen() { SaveAndReopen(PickRepository()); }

void Lockstep::Trim() { Storage(PickRepository()).Trim(); }

}  // namespace TalVcs::Testing
