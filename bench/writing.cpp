#include <bench/host.h>
#include <bench/measure.h>
#include <kit/batch_edit.h>

#include <algorithm>
#include <vector>

// Workloads that write: ids, imports, one large directory, a history on top of an import.

namespace TalVcs::Bench {
namespace {

void BM_Hash(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  Buffer data;
  const std::string content = HashContent(size);
  data.Append(content.data(), content.size());
  const std::uint64_t batch = std::max<std::uint64_t>(1, (1 << 20) / (size + 64));
  const Blob expected = MakeBlob(content);
  for (auto _ : state) {
    Section section;
    for (std::uint64_t i = 0; i < batch; ++i) {
      const Blob blob(data);
      benchmark::DoNotOptimize(blob.GetId());
    }
    section.Stop(state);
    section.Report(state, batch, 0, batch * size);
  }
  Require(Blob(data).GetId() == expected.GetId(), "the id");
}

/// The ids of as many blobs as fit into four megabytes.
void BM_HashMany(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  const std::size_t count = std::max<std::size_t>(16, (4 << 20) / size);
  const Blob content = MakeBlob(HashContent(size));
  for (auto _ : state) {
    std::vector<Blob> blobs;
    std::vector<const Blob*> pointers;
    for (std::size_t i = 0; i < count; ++i) blobs.push_back(MakeBlob(HashContent(size)));
    for (const Blob& blob : blobs) pointers.push_back(&blob);
    Section section;
    Blob::ComputeIds(pointers);
    section.Stop(state);
    section.Report(state, count, 0, count * size);
    Require(blobs.back().GetId() == content.GetId(), "the id");
  }
}

/// An import of large files whose ids are computed on several threads: elapsed time.
void BM_ImportOnThreads(benchmark::State& state) {
  constexpr std::uint32_t kFiles = 2000;
  constexpr std::size_t kSize = 64 << 10;
  std::vector<std::string> contents;
  for (std::uint32_t i = 0; i < kFiles; ++i) contents.push_back(HashContent(kSize + i));
  for (auto _ : state) {
    state.PauseTiming();
    Kit::BatchEdit edits;
    for (std::uint32_t i = 0; i < kFiles; ++i) edits.AddBlob(Widen(Path(i)), MakeBlob(contents[i]));
    edits.SetThreadCount(static_cast<unsigned>(state.range(0)));
    Repository repository = MakeRepository();
    Commit commit(&repository, false);
    state.ResumeTiming();
    Require(edits.ApplyTo(&repository, commit) == kFiles, "the edits are made");
    state.PauseTiming();
    Require(commit.GetTree()->GetBlobCount() == kFiles, "the number of files");
    state.ResumeTiming();
  }
}

void ImportFiles(benchmark::State& state, Way way, bool shuffled) {
  const auto count = static_cast<std::uint32_t>(state.range(0));
  const Files files(count);
  const std::vector<std::uint32_t> order = shuffled ? Shuffled(count) : InOrder(count);
  for (auto _ : state) {
    Section section;
    Repository repository = MakeRepository();
    const cow_ptr<Commit> head = Import(repository, files, order, way);
    section.Stop(state);
    const Volume volume = Measure(repository);
    section.Report(state, count, volume.objects, volume.bytes);
    ReportHeapParts(state, SplitHeap(repository), volume.objects);
    Require(head->GetTree()->GetBlobCount() == count, "the number of files");
    Require(repository.GetBlobCount() == count, "the number of blobs");
    if (way == Way::PerFile) {
      // The root of each state is another tree, and so are its middle and leaf directories.
      Require(repository.GetTreeCount() == 3 * std::uint64_t{count}, "the number of trees");
    }
  }
}

void BM_ImportBatch(benchmark::State& state) { ImportFiles(state, Way::Batch, false); }
void BM_ImportPerFile(benchmark::State& state) { ImportFiles(state, Way::PerFile, false); }
void BM_ImportShuffled(benchmark::State& state) { ImportFiles(state, Way::PerFile, true); }

void FillDirectory(benchmark::State& state, Way way) {
  const auto count = static_cast<std::uint32_t>(state.range(0));
  Files flat(count);
  flat.paths = flat.names;
  for (auto _ : state) {
    Section section;
    Repository repository = MakeRepository();
    const cow_ptr<Commit> head = Import(repository, flat, InOrder(count), way);
    section.Stop(state);
    const Volume volume = Measure(repository);
    section.Report(state, count, volume.objects, volume.bytes);
    ReportHeapParts(state, SplitHeap(repository), volume.objects);
    Require(head->GetTree()->GetBlobCount() == count, "the number of files");
    Require(repository.GetTreeCount() == (way == Way::PerFile ? count : 1), "the number of trees");
  }
}

void BM_FlatBatch(benchmark::State& state) { FillDirectory(state, Way::Batch); }
void BM_FlatPerFile(benchmark::State& state) { FillDirectory(state, Way::PerFile); }

void ChangeFiles(benchmark::State& state, Way way) {
  const auto count = static_cast<std::uint32_t>(state.range(0));
  const auto commits = static_cast<std::uint32_t>(state.range(1));
  const Files files(count);
  const Changes changes(PlanHistory(count, commits));
  for (auto _ : state) {
    Repository repository = MakeRepository();
    Import(repository, files, InOrder(count), Way::Batch);
    const Volume before = Measure(repository);
    const HeapParts parts_before = SplitHeap(repository);
    Section section;
    const cow_ptr<Commit> head = Replay(repository, changes, way);
    section.Stop(state);
    const Volume after = Measure(repository);
    const std::uint64_t objects = after.objects - before.objects;
    section.Report(state, commits, objects, after.bytes - before.bytes);
    ReportHeapParts(state, SplitHeap(repository) -= parts_before, objects);
    Require(repository.GetCommitCount() == commits + 1, "the number of commits");
    Require(repository.GetBlobCount() == count + std::uint64_t{kChangesPerCommit} * commits,
            "the number of blobs");
    Require(head->GetTree()->GetBlobCount() == count, "the number of files");
  }
}

void BM_HistoryBatch(benchmark::State& state) { ChangeFiles(state, Way::Batch); }
void BM_HistoryPerFile(benchmark::State& state) { ChangeFiles(state, Way::PerFile); }

void HistorySizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Args({1000, 1000})->Args({10000, 1000})->Args({10000, 5000})->Args({100000, 1000});
  benchmark->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
}

void ImportSizes(benchmark::internal::Benchmark* benchmark) {
  for (const int count : {1000, 2000, 5000, 10000, 20000, 50000, 100000, 200000}) {
    benchmark->Arg(count);
  }
  benchmark->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
}

void FlatSizes(benchmark::internal::Benchmark* benchmark) {
  for (const int count : {1000, 2000, 4000, 8000, 10000, 16000}) benchmark->Arg(count);
  benchmark->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
}

BENCHMARK(BM_ImportOnThreads)
    ->Name("import/threads")
    ->DenseRange(1, 2)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Hash)
    ->Name("hash")
    ->Arg(64)
    ->Arg(4 << 10)
    ->Arg(1 << 20)
    ->Arg(64 << 20)
    ->UseManualTime();
BENCHMARK(BM_HashMany)
    ->Name("hash/many")
    ->Arg(1 << 10)
    ->Arg(64 << 10)
    ->Arg(1 << 20)
    ->UseManualTime();
BENCHMARK(BM_ImportBatch)->Name("import/batch")->Apply(ImportSizes);
BENCHMARK(BM_ImportPerFile)->Name("import/perfile")->Apply(ImportSizes);
BENCHMARK(BM_ImportShuffled)->Name("import/shuffled")->Apply(ImportSizes);
BENCHMARK(BM_FlatBatch)->Name("flat/batch")->Apply(FlatSizes);
BENCHMARK(BM_FlatPerFile)->Name("flat/perfile")->Apply(FlatSizes);
BENCHMARK(BM_HistoryBatch)->Name("history/batch")->Apply(HistorySizes);
BENCHMARK(BM_HistoryPerFile)->Name("history/perfile")->Apply(HistorySizes);

}  // namespace
}  // namespace TalVcs::Bench
