#include <bench/floor_store.h>
#include <bench/measure.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <unordered_set>

// The floors of the workloads: what has to be hashed, copied, compared or freed and nothing more.
// The names are those of the library's own benchmarks. Those under "table/" also keep each object's
// bytes and put its id into a hash table.

namespace TalVcs::Bench {
namespace {

std::vector<std::string_view> Views(const std::vector<std::string>& texts) {
  return std::vector<std::string_view>(texts.begin(), texts.end());
}

std::vector<std::uint32_t> Indices(const std::vector<Change>& changes) {
  std::vector<std::uint32_t> indices;
  for (const Change& change : changes) indices.push_back(change.index);
  return indices;
}

void Replay(FloorTree& tree, const HistoryPlan& plan,
            const std::vector<std::vector<std::string>>& contents, bool perFile) {
  for (std::size_t c = 0; c < plan.size(); ++c) {
    if (perFile) {
      for (std::size_t i = 0; i < plan[c].size(); ++i) {
        tree.AddFile(plan[c][i].index, contents[c][i]);
      }
    } else {
      tree.AddTogether(Indices(plan[c]), Views(contents[c]));
    }
    tree.Record();
  }
}

void BM_Hash(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  const std::string content = HashContent(size);
  const std::uint64_t batch = std::max<std::uint64_t>(1, (1 << 20) / (size + 64));
  const std::string header = PackedHeader("blob", size);
  for (auto _ : state) {
    Section section;
    for (std::uint64_t i = 0; i < batch; ++i) {
      TalUtils::Sha256 hash;
      hash.Update(header.data(), header.size());
      hash.Update(content.data(), content.size());
      benchmark::DoNotOptimize(hash.Finish());
    }
    section.Stop(state);
    section.Report(state, batch, 0, batch * size);
  }
}

enum class Order { Batch, PerFile, Shuffled };

void ImportFiles(benchmark::State& state, Keep keep, Order order) {
  const auto count = static_cast<std::uint32_t>(state.range(0));
  const std::vector<std::string> contents = Contents(count);
  const std::vector<std::string_view> views = Views(contents);
  const std::vector<std::uint32_t> indices =
      order == Order::Shuffled ? Shuffled(count) : InOrder(count);
  for (auto _ : state) {
    Section section;
    FloorStore store(keep);
    FloorTree tree(store, count);
    if (order == Order::Batch) {
      tree.AddTogether(indices, views);
    } else {
      for (const std::uint32_t i : indices) tree.AddFile(i, views[i]);
    }
    tree.Record();
    section.Stop(state);
    section.Report(state, count, store.GetObjectCount(), store.GetHashedBytes());
  }
}

void FillDirectory(benchmark::State& state, Keep keep, Order order) {
  const auto count = static_cast<std::uint32_t>(state.range(0));
  const std::vector<std::string> contents = Contents(count);
  for (auto _ : state) {
    Section section;
    FloorStore store(keep);
    FloorDirectory directory("100644 blob ");
    for (std::uint32_t i = 0; i < count; ++i) {
      directory.Set(LeafName(i), store.Put("blob", contents[i]));
      if (order == Order::PerFile || i + 1 == count) store.Put("tree", directory.GetText());
    }
    PutCommit(store, 0);
    section.Stop(state);
    section.Report(state, count, store.GetObjectCount(), store.GetHashedBytes());
  }
}

void ChangeFiles(benchmark::State& state, Keep keep, Order order) {
  const auto count = static_cast<std::uint32_t>(state.range(0));
  const auto commits = static_cast<std::uint32_t>(state.range(1));
  const std::vector<std::string> base = Contents(count);
  const HistoryPlan plan = PlanHistory(count, commits);
  const std::vector<std::vector<std::string>> contents = Contents(plan);
  for (auto _ : state) {
    FloorStore store(keep);
    FloorTree tree(store, count);
    tree.AddTogether(InOrder(count), Views(base));
    tree.Record();
    const std::uint64_t objects = store.GetObjectCount();
    const std::uint64_t bytes = store.GetHashedBytes();
    Section section;
    Replay(tree, plan, contents, order == Order::PerFile);
    section.Stop(state);
    section.Report(state, commits, store.GetObjectCount() - objects,
                   store.GetHashedBytes() - bytes);
  }
}

/// Compares the entries of all directories that differ, of a fixed size and in the same order in
/// both trees, and writes down the paths.
void BM_Diff(benchmark::State& state) {
  const auto count = static_cast<std::uint32_t>(state.range(0));
  const DiffPlan plan = PlanDiff(count);
  std::vector<std::uint32_t> changed = plan.modified;
  changed.insert(changed.end(), plan.deleted.begin(), plan.deleted.end());
  changed.insert(changed.end(), plan.added.begin(), plan.added.end());
  std::sort(changed.begin(), changed.end());
  std::vector<Digest> from(count);
  Random random(count);
  for (Digest& id : from) random.Fill(static_cast<char*>(static_cast<void*>(id.data())), id.size());
  std::vector<Digest> to = from;
  std::vector<std::string> names;
  for (std::uint32_t i = 0; i < count; ++i) names.push_back(Path(i));
  for (const std::uint32_t i : changed) to[i][0] = static_cast<std::uint8_t>(to[i][0] + 1);
  for (auto _ : state) {
    std::vector<std::string> paths;
    Section section;
    std::uint32_t end = 0;
    for (const std::uint32_t i : changed) {
      if (i < end) continue;
      const std::uint32_t begin = i / kFilesPerLeaf * kFilesPerLeaf;
      end = std::min(count, begin + kFilesPerLeaf);
      for (std::uint32_t entry = begin; entry < end; ++entry) {
        if (from[entry] != to[entry]) paths.push_back(names[entry]);
      }
    }
    section.Stop(state);
    section.Report(state, 1);
    Require(paths.size() == changed.size(), "the number of paths");
  }
}

/// Hashes the trees that a merge has to make, and the commit: each directory in which both sides
/// changed something is hashed once.
void BM_Merge(benchmark::State& state) {
  const auto count = static_cast<std::uint32_t>(state.range(0));
  const MergePlan plan = PlanMerge(count);
  std::vector<std::uint32_t> ours = plan.ours;
  std::vector<std::uint32_t> theirs = plan.theirs;
  for (std::vector<std::uint32_t>* side : {&ours, &theirs}) {
    side->insert(side->end(), plan.both.begin(), plan.both.end());
  }
  const auto touchedByBoth = [&](std::uint32_t filesPerDirectory) {
    std::unordered_set<std::uint32_t> left;
    std::unordered_set<std::uint32_t> common;
    for (const std::uint32_t i : ours) left.insert(i / filesPerDirectory);
    for (const std::uint32_t i : theirs) {
      if (left.contains(i / filesPerDirectory)) common.insert(i / filesPerDirectory);
    }
    return common.size();
  };
  const std::size_t leaves = touchedByBoth(kFilesPerLeaf);
  const std::size_t tops = touchedByBoth(kFilesPerTop);
  const std::string leaf(kFilesPerLeaf * 84, 'x');
  const std::string top(kFilesPerTop / kFilesPerLeaf * 81, 'x');
  const std::string root((count + kFilesPerTop - 1) / kFilesPerTop * 81, 'x');
  for (auto _ : state) {
    FloorStore store(Keep::Nothing);
    Section section;
    for (std::size_t i = 0; i < leaves; ++i) store.Put("tree", leaf);
    for (std::size_t i = 0; i < tops; ++i) store.Put("tree", top);
    store.Put("tree", root);
    PutCommit(store, 0);
    section.Stop(state);
    section.Report(state, 1, 0, store.GetHashedBytes());
  }
}

/// Walks a chain of commits, each in memory of its own, and remembers where it has been.
void BM_MergeBase(benchmark::State& state) {
  struct Node {
    const Node* parent;
    char content[300];
  };
  const auto commits = static_cast<std::size_t>(state.range(0));
  std::vector<std::unique_ptr<Node>> nodes;
  for (std::size_t i = 0; i < commits; ++i) {
    nodes.push_back(std::make_unique<Node>());
    nodes.back()->parent = i == 0 ? nullptr : nodes[i - 1].get();
  }
  std::size_t seen = 0;
  for (auto _ : state) {
    Section section;
    std::unordered_set<const Node*> visited;
    for (const Node* node = nodes.back().get(); node != nullptr; node = node->parent) {
      visited.insert(node);
    }
    seen = visited.size();
    section.Stop(state);
    section.Report(state, 1);
  }
  Require(seen == commits, "the number of commits");
}

/// A store with an import and a history on top of it.
void FillHistory(FloorStore& store, FloorTree& tree, std::uint32_t files, std::uint32_t commits) {
  const std::vector<std::string> base = Contents(files);
  tree.AddTogether(InOrder(files), Views(base));
  tree.Record();
  const HistoryPlan plan = PlanHistory(files, commits);
  Replay(tree, plan, Contents(plan), false);
  Require(store.GetKeptCount() == store.GetObjectCount(), "the number of objects");
}

/// Copies every packed object to a buffer that is there already.
void BM_Save(benchmark::State& state) {
  const auto files = static_cast<std::uint32_t>(state.range(0));
  FloorStore store(Keep::Table);
  FloorTree tree(store, files);
  FillHistory(store, tree, files, static_cast<std::uint32_t>(state.range(1)));
  std::string out(store.GetHashedBytes(), 'x');
  for (auto _ : state) {
    Section section;
    char* at = out.data();
    for (std::size_t i = 0; i < store.GetKeptCount(); ++i) {
      const std::string_view packed = store.GetKept(i);
      std::memcpy(at, packed.data(), packed.size());
      at += packed.size();
    }
    section.Stop(state);
    section.Report(state, 1, store.GetKeptCount());
  }
}

/// Copies every object, hashes it and puts it into the table of a new store.
void BM_Load(benchmark::State& state) {
  const auto files = static_cast<std::uint32_t>(state.range(0));
  FloorStore source(Keep::Table);
  FloorTree tree(source, files);
  FillHistory(source, tree, files, static_cast<std::uint32_t>(state.range(1)));
  for (auto _ : state) {
    FloorStore store(Keep::Table);
    Section section;
    for (std::size_t i = 0; i < source.GetKeptCount(); ++i) {
      const std::string_view packed = source.GetKept(i);
      store.Put(packed.substr(0, packed.find(' ')), packed.substr(packed.find('\0') + 1));
    }
    section.Stop(state);
    section.Report(state, 1, source.GetKeptCount(), store.GetHashedBytes());
  }
}

/// Frees the packed forms of the objects that a dropped branch alone holds, and forgets their ids.
void BM_Purge(benchmark::State& state) {
  const auto files = static_cast<std::uint32_t>(state.range(0));
  for (auto _ : state) {
    FloorStore store(Keep::Table);
    FloorTree tree(store, files);
    FillHistory(store, tree, files, static_cast<std::uint32_t>(state.range(1)));
    const std::size_t live = store.GetKeptCount();
    const HistoryPlan plan = PlanDroppedBranch(files, static_cast<std::uint32_t>(state.range(2)));
    Replay(tree, plan, Contents(plan), false);
    const std::size_t objects = store.GetKeptCount();
    Section section;
    store.Shrink(live);
    section.Stop(state);
    section.Report(state, 1, objects);
  }
}

void Once(benchmark::internal::Benchmark* benchmark) {
  benchmark->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
}

void Repeated(benchmark::internal::Benchmark* benchmark) {
  benchmark->UseManualTime()->Iterations(15)->Unit(benchmark::kMillisecond);
}

void RegisterWrites(const std::string& prefix, Keep keep) {
  const std::pair<const char*, Order> orders[] = {
      {"batch", Order::Batch}, {"perfile", Order::PerFile}, {"shuffled", Order::Shuffled}};
  for (const auto& [name, order] : orders) {
    auto* import =
        benchmark::RegisterBenchmark((prefix + "import/" + name).c_str(), ImportFiles, keep, order);
    import->Apply(Once);
    for (const int count : {1000, 10000, 100000}) import->Arg(count);
    if (order == Order::Shuffled) continue;
    benchmark::RegisterBenchmark((prefix + "flat/" + name).c_str(), FillDirectory, keep, order)
        ->Apply(Once)
        ->Arg(1000)
        ->Arg(10000);
    benchmark::RegisterBenchmark((prefix + "history/" + name).c_str(), ChangeFiles, keep, order)
        ->Apply(Once)
        ->Args({1000, 1000})
        ->Args({10000, 1000})
        ->Args({10000, 5000})
        ->Args({100000, 1000});
  }
}

void RegisterAll() {
  for (const int size : {64, 4 << 10, 1 << 20, 64 << 20}) {
    benchmark::RegisterBenchmark("hash", BM_Hash)->Arg(size)->UseManualTime();
  }
  for (const int size : {1 << 10, 64 << 10, 1 << 20}) {
    benchmark::RegisterBenchmark("hash/many", BM_Hash)->Arg(size)->UseManualTime();
  }
  RegisterWrites("", Keep::Nothing);
  RegisterWrites("table/", Keep::Table);
  for (const int count : {10000, 100000}) {
    benchmark::RegisterBenchmark("diff", BM_Diff)->Arg(count)->Apply(Repeated);
    benchmark::RegisterBenchmark("merge", BM_Merge)->Arg(count)->Apply(Repeated);
    benchmark::RegisterBenchmark("mergebase/far", BM_MergeBase)->Arg(count)->Apply(Repeated);
  }
  for (const auto& [files, commits] : {std::pair{1000, 100}, std::pair{10000, 1000}}) {
    benchmark::RegisterBenchmark("save/stream", BM_Save)->Args({files, commits})->Apply(Repeated);
    benchmark::RegisterBenchmark("load/stream", BM_Load)->Args({files, commits})->Apply(Repeated);
  }
  benchmark::RegisterBenchmark("purge", BM_Purge)
      ->Args({10000, 1000, 100})
      ->Args({10000, 1000, 1000})
      ->Apply(Once);
}

}  // namespace
}  // namespace TalVcs::Bench

int main(int argc, char** argv) {
  TalVcs::Bench::RegisterAll();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
