#include <bench/host.h>
#include <bench/measure.h>
#include <bench/store.h>

#include <unordered_set>

// Workloads about what is kept: saving, loading, walking and purging a history.

namespace TalVcs::Bench {
namespace {

/// A repository with an import and a history on top of it.
Repository MakeHistory(std::uint32_t files, std::uint32_t commits) {
  Repository repository = MakeRepository();
  Import(repository, Files(files), InOrder(files), Way::Batch);
  Replay(repository, Changes(PlanHistory(files, commits)), Way::Batch);
  return repository;
}

/// Removes what building has left beside what the branch reaches.
Repository MakePurgedHistory(benchmark::State& state) {
  Repository repository = MakeHistory(static_cast<std::uint32_t>(state.range(0)),
                                      static_cast<std::uint32_t>(state.range(1)));
  repository.UpdateStorage();
  return repository;
}

template <class Store>
void Save(benchmark::State& state, Store& store) {
  const Repository repository = MakePurgedHistory(state);
  const Volume volume = Measure(repository);
  for (auto _ : state) {
    store.RemoveStorage(TalStringT<WideChar>());
    Section section;
    const bool saved = Serializer(&store, Widen("store")).Serialize(repository.GetStorage());
    section.Stop(state);
    section.Report(state, 1, volume.objects);
    Require(saved && store.GetStreamCount() == volume.objects + 1, "the number of streams");
  }
}

std::size_t EnoughBytes(benchmark::State& state) {
  return static_cast<std::size_t>(state.range(0) * 2000 + state.range(1) * 100000);
}

void BM_Save(benchmark::State& state) {
  StreamStore store(EnoughBytes(state));
  Save(state, store);
}

void BM_SaveSharing(benchmark::State& state) {
  SharingStore store;
  Save(state, store);
}

template <class Store>
void Load(benchmark::State& state, Store& store) {
  const Repository source = MakePurgedHistory(state);
  Serializer(&store, Widen("store")).Serialize(source.GetStorage());
  store.BuildIndex();
  const Volume volume = Measure(source);
  for (auto _ : state) {
    Repository repository = MakeRepository();
    Section section;
    const bool loaded = Deserializer(&store, Widen("store")).Deserialize(&repository);
    section.Stop(state);
    section.Report(state, 1, volume.objects, volume.bytes);
    Require(loaded && Measure(repository).bytes == volume.bytes, "everything comes back");
    Require(repository.GetHead()->GetId() == source.GetHead()->GetId(), "the head's id");
  }
}

void BM_Load(benchmark::State& state) {
  StreamStore store(EnoughBytes(state));
  Load(state, store);
}

void BM_LoadSharing(benchmark::State& state) {
  SharingStore store;
  Load(state, store);
}

/// Visits everything that a commit reaches, each object once.
class Walk {
 public:
  std::uint64_t Count(cow_ptr<Commit> commit) {
    std::uint64_t commits = 0;
    for (; commit; commit = commit->GetParent(), ++commits) Visit(*commit->GetTree()->GetRoot());
    return commits + m_trees.size() + m_blobs.size();
  }

 private:
  void Visit(const Tree& tree) {
    if (!m_trees.insert(tree.GetId()).second) return;
    for (const TalStringT<WideChar>& name : tree.GetLocalSubtreePaths()) {
      Visit(*tree.GetLocalTree(name));
    }
    for (const TalStringT<WideChar>& name : tree.GetLocalBlobPaths()) {
      m_blobs.insert(tree.GetLocalBlob(name)->GetId());
    }
  }

  std::unordered_set<Id> m_trees;
  std::unordered_set<Id> m_blobs;
};

void BM_Walk(benchmark::State& state) {
  const Repository repository = MakePurgedHistory(state);
  const Volume volume = Measure(repository);
  for (auto _ : state) {
    Section section;
    const std::uint64_t objects = Walk().Count(repository.GetHead());
    section.Stop(state);
    section.Report(state, 1, volume.objects);
    Require(objects == volume.objects, "the number of objects");
  }
}

void BM_Purge(benchmark::State& state) {
  const auto files = static_cast<std::uint32_t>(state.range(0));
  const auto commits = static_cast<std::uint32_t>(state.range(1));
  const auto dropped = static_cast<std::uint32_t>(state.range(2));
  for (auto _ : state) {
    Repository repository = MakeRepository();
    const cow_ptr<Commit> first = Import(repository, Files(files), InOrder(files), Way::Batch);
    Replay(repository, Changes(PlanHistory(files, commits)), Way::Batch);
    repository.UpdateStorage();
    const Volume live = Measure(repository);
    const TalStringT<WideChar> kept = repository.GetCurentBranch();
    const WideText name = Widen("dropped");
    repository.CreateBranch(name, first);
    repository.Checkout(name);
    Replay(repository, Changes(PlanDroppedBranch(files, dropped)), Way::Batch, commits + 1);
    repository.Checkout(kept);
    repository.RemoveBranch(name);
    const std::uint64_t objects = Measure(repository).objects;
    Section section;
    repository.UpdateStorage();
    section.Stop(state);
    section.Report(state, 1, objects);
    const Volume left = Measure(repository);
    Require(left.objects == live.objects && left.bytes == live.bytes, "what is left");
  }
}

void StoreSizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Args({1000, 100})->Args({10000, 1000});
  benchmark->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);
}

BENCHMARK(BM_Save)->Name("save/stream")->Apply(StoreSizes);
BENCHMARK(BM_SaveSharing)->Name("save/sharing")->Apply(StoreSizes);
BENCHMARK(BM_Load)->Name("load/stream")->Apply(StoreSizes);
BENCHMARK(BM_LoadSharing)->Name("load/sharing")->Apply(StoreSizes);
BENCHMARK(BM_Walk)->Name("walk")->Apply(StoreSizes);
BENCHMARK(BM_Purge)
    ->Name("purge")
    ->Args({1000, 100, 100})
    ->Args({10000, 1000, 100})
    ->Args({10000, 1000, 1000})
    ->UseManualTime()
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace TalVcs::Bench
