#include <bench/host.h>
#include <bench/measure.h>

#include <utility>

// Workloads that look at what is there: differences of trees, merges, common bases.

namespace TalVcs::Bench {
namespace {

/// A repository with an import, from whose tree others are made.
struct Base {
  explicit Base(std::uint32_t count) : repository(MakeRepository()) {
    commit = Import(repository, Files(count), InOrder(count), Way::Batch);
  }

  /// Commits changed files on top of the import.
  cow_ptr<Commit> Change(const std::vector<std::pair<std::uint32_t, Family>>& changes) {
    Commit next(commit, false);
    for (const auto& [index, family] : changes) {
      next.AddBlob(&repository, Widen(Path(index)), MakeBlob(Content(family, index, 1)));
    }
    return repository.SyncWithStorage(Share(std::move(next)));
  }

  Repository repository;
  cow_ptr<Commit> commit;
};

/// The fingerprint of differing paths, each with what happened to it from `from` to `to`.
std::uint64_t FingerprintOf(const std::vector<TalStringT<WideChar>>& paths, const Tree& from,
                            const Tree& to) {
  Fingerprint fingerprint;
  for (const TalStringT<WideChar>& path : paths) {
    const bool before = from.GetDeepBlob(path) != nullptr;
    const bool after = to.GetDeepBlob(path) != nullptr;
    const char status = before && after ? 'M' : before ? 'D' : 'A';
    fingerprint.Add(&status, 1);
    const TalStringViewT<WideChar> view = path;
    fingerprint.Add(std::string(view.text, view.text + view.length));
  }
  return fingerprint.Value();
}

void BM_Diff(benchmark::State& state) {
  const auto count = static_cast<std::uint32_t>(state.range(0));
  Base base(count);
  const DiffPlan plan = PlanDiff(count);
  Commit changed(base.commit, false);
  for (const std::uint32_t i : plan.modified) {
    changed.AddBlob(&base.repository, Widen(Path(i)), MakeBlob(Content(Family::Diff, i, 1)));
  }
  for (const std::uint32_t i : plan.deleted) changed.RemoveObject(&base.repository, Widen(Path(i)));
  for (const std::uint32_t i : plan.added) {
    changed.AddBlob(&base.repository, Widen(Path(i) + 'x'), MakeBlob(Content(Family::Diff, i, 2)));
  }
  const cow_ptr<Tree> from = base.commit->GetTree()->GetRoot();
  const cow_ptr<Tree> to = base.repository.SyncWithStorage(changed.GetTree()->GetRoot());
  std::vector<TalStringT<WideChar>> paths;
  for (auto _ : state) {
    Section section;
    paths = from->GetDeepBlobDiffs(to);
    section.Stop(state);
    section.Report(state, 1);
  }
  Require(FingerprintOf(paths, *from, *to) == FingerprintOf(plan), "the paths that differ");
}

void BM_DiffFull(benchmark::State& state) {
  const auto count = static_cast<std::uint32_t>(state.range(0));
  const Base base(count);
  const cow_ptr<Tree> tree = base.commit->GetTree()->GetRoot();
  for (auto _ : state) {
    Section section;
    const std::vector<TalStringT<WideChar>> paths = tree->GetDeepBlobDiffs(nullptr);
    section.Stop(state);
    section.Report(state, 1);
    Require(paths.size() == count, "the number of paths");
  }
}

void BM_Merge(benchmark::State& state) {
  const auto count = static_cast<std::uint32_t>(state.range(0));
  const MergePlan plan = PlanMerge(count);
  Base base(count);
  std::vector<std::pair<std::uint32_t, Family>> ours;
  std::vector<std::pair<std::uint32_t, Family>> theirs;
  for (const std::uint32_t i : plan.ours) ours.emplace_back(i, Family::Ours);
  for (const std::uint32_t i : plan.theirs) theirs.emplace_back(i, Family::Theirs);
  std::vector<std::pair<std::uint32_t, Family>> merged = ours;
  merged.insert(merged.end(), theirs.begin(), theirs.end());
  for (const std::uint32_t i : plan.both) {
    ours.emplace_back(i, Family::Ours);
    theirs.emplace_back(i, Family::Theirs);
    merged.emplace_back(i, Family::Ours);
  }
  const cow_ptr<Commit> left = base.Change(ours);
  const cow_ptr<Commit> right = base.Change(theirs);
  // In a repository of its own: the merge that is measured has to store its trees itself.
  const Id expected = Base(count).Change(merged)->GetTree()->GetRootId();

  int conflicts = 0;
  const Resolvers resolvers{[&conflicts](array_view<const TalStringViewT<WideChar>>, MergeTrees) {
                              ++conflicts;
                              return ConflictChoice::Left;
                            },
                            always_return_t<TreeConflictChoice>{TreeConflictChoice::Descend}};
  for (auto _ : state) {
    Repository repository = base.repository;
    repository.MoveBranchTo(repository.GetCurentBranch(), left);
    conflicts = 0;
    Section section;
    const bool done = repository.Merge(right, resolvers);
    section.Stop(state);
    section.Report(state, 1);
    Require(done && conflicts == 10, "the number of conflicts");
    Require(repository.GetHead()->GetTree()->GetRootId() == expected, "the merged tree");
  }
}

enum class Shape { Far, Near, Fork };

void FindBase(benchmark::State& state, Shape shape) {
  const auto commits = static_cast<std::uint32_t>(state.range(0));
  Repository repository = MakeRepository();
  Commit empty(&repository, false);
  empty.AddBlob(&repository, Widen("x"), MakeBlob("x\n"));
  const cow_ptr<Commit> first = Record(repository, empty, 0);
  cow_ptr<Commit> expected = first;
  cow_ptr<Commit> one;
  if (shape == Shape::Fork) {
    one = Chain(repository, first, commits / 2, 1);
  } else {
    one = Chain(repository, first, commits - 1, 1);
    if (shape == Shape::Near) expected = one->GetParent();
  }
  const std::uint32_t others = shape == Shape::Fork ? commits / 2 : 1;
  const cow_ptr<Commit> two = Chain(repository, expected, others, commits + 1);
  cow_ptr<Commit> found;
  for (auto _ : state) {
    Section section;
    found = repository.GetCommonBase(one, two);
    section.Stop(state);
    section.Report(state, 1);
  }
  Require(found == expected, "the common base");
}

void BM_MergeBaseFar(benchmark::State& state) { FindBase(state, Shape::Far); }
void BM_MergeBaseNear(benchmark::State& state) { FindBase(state, Shape::Near); }
void BM_MergeBaseFork(benchmark::State& state) { FindBase(state, Shape::Fork); }

void TwoSizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Arg(10000)->Arg(100000)->UseManualTime()->Iterations(15)->Unit(
      benchmark::kMillisecond);
}

BENCHMARK(BM_Diff)->Name("diff")->Apply(TwoSizes);
BENCHMARK(BM_DiffFull)->Name("diff/full")->Apply(TwoSizes);
BENCHMARK(BM_Merge)->Name("merge")->Apply(TwoSizes);
BENCHMARK(BM_MergeBaseFar)->Name("mergebase/far")->Apply(TwoSizes);
BENCHMARK(BM_MergeBaseNear)->Name("mergebase/near")->Apply(TwoSizes);
BENCHMARK(BM_MergeBaseFork)->Name("mergebase/fork")->Apply(TwoSizes);

}  // namespace
}  // namespace TalVcs::Bench
