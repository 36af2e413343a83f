#include <kit/open/internal/errors.h>
#include <kit/open/internal/history_walk.h>
#include <kit/open/internal/opened_access.h>
#include <kit/open/internal/store_reader.h>
#include <kit/open/open.h>
#include <kit/store/opening_store.h>
#include <kit/store/trimmable_store.h>

#include <algorithm>
#include <utility>

namespace TalVcs::Kit {

namespace {

constexpr char kFirstBranch[] = "master";

bool IsTaken(const BranchReport& branch, DamagePolicy policy) noexcept {
  switch (branch.state) {
    case BranchState::Lost:
      return false;
    case BranchState::Partial:
      return policy == DamagePolicy::Salvage;
    case BranchState::Unchecked:
    case BranchState::Whole:
      break;
  }
  return true;
}

/// Returns the name of the current branch: the wanted one, else the saved one, else "master". Of
/// the last two, one that was left out gives way to the first branch that wasn't.
Result<std::string> ChooseBranch(const HistoryReport& report, const std::vector<Head>& taken,
                                 const std::string& wanted,
                                 const std::optional<std::string>& saved) {
  const auto is_taken = [&taken](const std::string& name) {
    return std::any_of(taken.begin(), taken.end(),
                       [&name](const Head& head) { return head.name == name; });
  };
  if (!wanted.empty()) {
    if (is_taken(wanted) || report.branches.empty()) return wanted;
    return MakeError(ErrorCode::NotFound,
                     "cannot make " + Quoted(wanted) + " the current branch: " +
                         (FindBranch(report, wanted) ? "it is damaged" : "there is no such branch"),
                     wanted);
  }
  // A saved branch that isn't there had no head yet.
  if (saved && (is_taken(*saved) || FindBranch(report, *saved) == nullptr)) return *saved;
  if (is_taken(kFirstBranch) || report.branches.empty()) return std::string(kFirstBranch);
  if (!taken.empty()) return taken.front().name;
  return std::string();
}

HistoryReport UncheckedReport(const std::vector<Head>& heads) {
  HistoryReport report;
  for (const Head& head : heads) {
    report.branches.push_back({head.name, head.id, BranchState::Unchecked, 0, 0});
  }
  return report;
}

/// Looks at the head commits and their root trees, and at nothing below.
Result<HistoryReport> CheckHeads(IObjectStore& store, const std::vector<Head>& heads) {
  HistoryReport report = UncheckedReport(heads);
  const auto add = [&report](BranchReport& branch, const Id& id, ObjectType type,
                             ReadProblem problem) {
    branch.state = type == ObjectType::Commit ? BranchState::Lost : BranchState::Partial;
    ++report.damageCount;
    report.damages.push_back(
        {id, type, problem.code, std::move(problem.reason), branch.name, branch.head, {}, 1});
  };
  for (BranchReport& branch : report.branches) {
    if (branch.head.View().IsEmpty()) continue;
    const Result<std::vector<CommitRecord>> commits = CommitReader(store, branch.head).Next();
    if (!commits) return commits.error();
    const CommitRecord& commit = commits->front();
    if (commit.problem) {
      add(branch, commit.id, ObjectType::Commit, *commit.problem);
    } else if (!commit.root.View().IsEmpty()) {
      const Status status = ReadEach(
          store, {&commit.root, 1}, [&](std::size_t, const Result<Buffer>& packed) -> Status {
            auto problem = CheckRecord(commit.root, ObjectType::Tree, packed);
            if (problem) add(branch, commit.root, ObjectType::Tree, *std::move(problem));
            return {};
          });
      if (!status) return status.error();
    }
  }
  return report;
}

}  // namespace

OpenedRepository::OpenedRepository(std::unique_ptr<OpenedState> state) noexcept
    : m_state(std::move(state)) {}
OpenedRepository::OpenedRepository(OpenedRepository&& other) noexcept = default;
OpenedRepository& OpenedRepository::operator=(OpenedRepository&& other) noexcept = default;
OpenedRepository::~OpenedRepository() = default;

Repository& OpenedRepository::GetRepository() noexcept { return m_state->repository; }
const Repository& OpenedRepository::GetRepository() const noexcept { return m_state->repository; }
const std::vector<Head>& OpenedRepository::GetSavedHeads() const noexcept { return m_state->heads; }
const HistoryReport& OpenedRepository::GetReport() const noexcept { return m_state->report; }
void OpenedRepository::Trim() {
  if (OnDemandStorage* storage = m_state->Storage()) storage->Trim();
  if (m_state->store) TrimStore(*m_state->store);
}

Result<OpenedRepository> OpenedAccess::Make(std::shared_ptr<IObjectStore> store,
                                            std::shared_ptr<IObjectReader> reader,
                                            std::shared_ptr<LoadedObjects> loaded,
                                            HistoryReport report, DamagePolicy policy,
                                            const std::string& branch,
                                            std::optional<std::string> saved) {
  if (!report.IsWhole() && policy == DamagePolicy::Stop) return ErrorOfDamage(report);
  std::vector<Head> taken;
  for (const BranchReport& found : report.branches) {
    if (IsTaken(found, policy)) taken.push_back({found.name, found.head});
  }
  const Result<std::string> current = ChooseBranch(report, taken, branch, saved);
  if (!current) return current.error();

  std::vector<OnDemandStorage::BranchHead> heads;
  bool has_current = current->empty();
  for (const Head& head : taken) {
    heads.emplace_back(ToWide(head.name), head.id);
    has_current = has_current || head.name == *current;
  }
  if (!has_current) heads.emplace_back(ToWide(*current), Id());
  Repository repository(std::make_unique<OnDemandStorage>(std::move(reader), heads));
  repository.Checkout(ToWide(*current));
  return OpenedRepository(std::make_unique<OpenedState>(
      OpenedState{std::move(store), std::move(repository), std::move(report), std::move(taken),
                  std::move(saved), std::move(loaded)}));
}

Result<OpenedRepository> Open(std::shared_ptr<IObjectStore> store, const OpenOptions& options) {
  Result<StoreOpening> opening = ReadOpening(*store, options.branch, kBranchValue, kFirstBranch);
  if (!opening) return std::move(opening).error();
  Result<HistoryReport> report = UncheckedReport(opening->heads);
  if (options.check == OpenCheck::Heads) {
    report = CheckHeads(*store, opening->heads);
  } else if (options.check == OpenCheck::Everything) {
    Reporter reporter(options.progress);
    report = HistoryWalk(*store, reporter, {}).Run(opening->heads);
  }
  if (!report) return report.error();
  auto reader = std::make_shared<StoreReader>(store, std::move(opening->objects));
  return OpenedAccess::Make(std::move(store), std::move(reader), nullptr, *std::move(report),
                            options.policy, options.branch, std::move(opening->value));
}

}  // namespace TalVcs::Kit
