#include <bench/host.h>
#include <bench/measure.h>

// Operations on large histories, of sizes that double, to show how their cost grows.

namespace TalVcs::Bench {
namespace {

constexpr std::uint32_t kBranches = 1000;

/// A repository with one commit of one file.
Repository MakeStart(cow_ptr<Commit>& first) {
  Repository repository = MakeRepository();
  Commit commit(&repository, false);
  commit.AddBlob(&repository, Widen("x"), MakeBlob("x\n"));
  first = Record(repository, commit, 0);
  return repository;
}

WideText BranchName(std::uint32_t number) { return Widen("branch " + std::to_string(number)); }

/// Half of the commits are a trunk, from which the branches fork off at even distances; each has
/// its share of the other half.
void BM_Simplify(benchmark::State& state) {
  const auto commits = static_cast<std::uint32_t>(state.range(0));
  const std::uint32_t step = commits / 2 / kBranches;
  for (auto _ : state) {
    cow_ptr<Commit> first;
    Repository repository = MakeStart(first);
    {
      std::vector<cow_ptr<Commit>> trunk;
      repository.MoveBranchTo(repository.GetCurentBranch(),
                              Chain(repository, first, commits / 2, 1, &trunk));
      for (std::uint32_t i = 0; i < kBranches; ++i) {
        const std::uint32_t number = commits + i * step;
        repository.CreateBranch(BranchName(i), Chain(repository, trunk[i * step], step, number));
      }
      first = cow_ptr<Commit>();
    }
    Section section;
    const bool done = repository.SimplifyCommitGraph(true);
    section.Stop(state);
    section.Report(state, commits);
    // The heads, the commits where they fork off, and the head of the trunk.
    Require(done && repository.GetCommitCount() == 2 * kBranches + 1, "the number of commits");
  }
}

/// A chain on which the branches stand at even distances, deleted from its end on.
void BM_Delete(benchmark::State& state) {
  const auto commits = static_cast<std::uint32_t>(state.range(0));
  for (auto _ : state) {
    cow_ptr<Commit> head;
    Repository repository = MakeStart(head);
    for (std::uint32_t i = 0; i < kBranches; ++i) {
      head = Chain(repository, std::move(head), commits / kBranches, 1 + i * (commits / kBranches));
      repository.CreateBranch(BranchName(i), head);
    }
    repository.MoveBranchTo(repository.GetCurentBranch(), head);
    Section section;
    const bool done = repository.DeleteCommits(std::move(head));
    section.Stop(state);
    section.Report(state, commits);
    Require(done && repository.GetCommitCount() == kBranches, "the number of commits");
  }
}

/// Two branches of commits that change the only file, one of which is dropped: each commit comes
/// with a tree and a blob of its own.
void BM_PurgeHalf(benchmark::State& state) {
  const auto objects = static_cast<std::uint32_t>(state.range(0));
  const std::uint32_t commits = objects / 6;
  for (auto _ : state) {
    cow_ptr<Commit> first;
    Repository repository = MakeStart(first);
    const auto grow = [&](std::uint32_t number) {
      for (std::uint32_t i = 0; i < commits; ++i) {
        Commit commit(&repository, false);
        commit.AddBlob(&repository, Widen("x"), MakeBlob(Message(number + i)));
        Record(repository, commit, number + i);
      }
    };
    const WideText kept = repository.GetCurentBranch();
    const WideText dropped = BranchName(0);
    repository.CreateBranch(dropped, std::move(first));
    grow(1);
    const Volume live = Measure(repository);
    repository.Checkout(dropped);
    grow(commits + 1);
    repository.Checkout(kept);
    repository.RemoveBranch(dropped);
    const Volume all = Measure(repository);
    Section section;
    repository.UpdateStorage();
    section.Stop(state);
    section.Report(state, all.objects);
    Require(Measure(repository).objects == live.objects, "the number of objects");
    Require(all.objects == 3 + 6 * std::uint64_t{commits}, "the number of objects before");
  }
}

/// A chain of commits of one tree.
void BM_Chain(benchmark::State& state) {
  const auto commits = static_cast<std::uint32_t>(state.range(0));
  for (auto _ : state) {
    cow_ptr<Commit> head;
    Repository repository = MakeStart(head);
    Section section;
    head = Chain(repository, std::move(head), commits, 1);
    section.Stop(state);
    section.Report(state, commits, commits);
    ReportHeapParts(state, SplitHeap(repository), commits);
    Require(repository.GetCommitCount() == commits + 1, "the number of commits");
  }
}

/// Two histories without a common commit, a chain and a single commit, rebased onto a new root.
void BM_Rebase(benchmark::State& state) {
  const auto commits = static_cast<std::uint32_t>(state.range(0));
  for (auto _ : state) {
    Repository repository = MakeRepository();
    const WideText root = Widen("root");
    repository.CreateBranch(BranchName(0), Chain(repository, nullptr, commits - 1, 1));
    repository.CreateBranch(BranchName(1), Chain(repository, nullptr, 1, commits));
    Section section;
    const bool done = repository.EnsureCommonRootFor(BranchName(0), BranchName(1), root);
    section.Stop(state);
    section.Report(state, commits, commits);
    Require(done && repository.GetCommitCount() == 2 * std::uint64_t{commits} + 1,
            "the number of commits");
  }
}

/// Doubles the size three times, up to `largest`.
void RegisterGrowth(benchmark::internal::Benchmark* benchmark, std::int64_t largest) {
  for (const int part : {8, 4, 2, 1}) benchmark->Arg(largest / part);
  benchmark->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
}

BENCHMARK(BM_Chain)->Name("chain")->Arg(100000)->UseManualTime()->Iterations(1)->Unit(
    benchmark::kMillisecond);
BENCHMARK(BM_Rebase)->Name("rebase")->Arg(100000)->UseManualTime()->Iterations(1)->Unit(
    benchmark::kMillisecond);
BENCHMARK(BM_Simplify)->Name("scale/simplify")->Apply([](auto* benchmark) {
  RegisterGrowth(benchmark, 100000);
});
BENCHMARK(BM_Delete)->Name("scale/delete")->Apply([](auto* benchmark) {
  RegisterGrowth(benchmark, 1000000);
});
BENCHMARK(BM_PurgeHalf)->Name("scale/purge")->Apply([](auto* benchmark) {
  RegisterGrowth(benchmark, 1000000);
});

}  // namespace
}  // namespace TalVcs::Bench
