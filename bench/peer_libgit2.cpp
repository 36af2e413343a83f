#include <bench/measure.h>
#include <bench/peer_repository.h>

#include <chrono>
#include <cstdlib>
#include <string>

// The workloads on libgit2 with all objects in memory, under the names of the library's own
// benchmarks. Its checks that nobody else can have written to that memory are off.

namespace TalVcs::Bench {
namespace {

void BM_Hash(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  const std::string content = HashContent(size);
  const std::uint64_t batch = std::max<std::uint64_t>(1, (1 << 20) / (size + 64));
  for (auto _ : state) {
    git_oid id;
    Section section;
    for (std::uint64_t i = 0; i < batch; ++i) {
      Check(git_odb_hash(&id, content.data(), size, GIT_OBJECT_BLOB));
    }
    section.Stop(state);
    section.Report(state, batch, 0, batch * size);
  }
}

/// Puts file after file under its path, with a stored tree after each. Returns the last.
git_oid PutOneByOne(PeerRepository& repository, const std::vector<std::string>& paths,
                    const std::vector<std::string>& contents,
                    const std::vector<std::uint32_t>& order) {
  git_oid tree = {};
  GitTree current;
  for (const std::uint32_t i : order) {
    tree = repository.Edit(current.get(), {{paths[i], repository.PutBlob(contents[i])}});
    current = repository.GetTree(tree);
  }
  return tree;
}

enum class Order { Batch, PerFile, Shuffled };

void ImportFiles(benchmark::State& state, Order order) {
  const auto count = static_cast<std::uint32_t>(state.range(0));
  const std::vector<std::string> contents = Contents(count);
  std::vector<std::string> paths;
  for (std::uint32_t i = 0; i < count; ++i) paths.push_back(Path(i));
  const std::vector<std::uint32_t> indices =
      order == Order::Shuffled ? Shuffled(count) : InOrder(count);
  for (auto _ : state) {
    Section section;
    PeerRepository repository;
    const git_oid tree = order == Order::Batch ? repository.BuildTree(contents)
                                               : PutOneByOne(repository, paths, contents, indices);
    const git_oid head = repository.Record(tree, {}, 0);
    section.Stop(state);
    const std::uint64_t reached = repository.Reach(head).size();
    section.Report(state, count, order == Order::Batch ? reached : 4 * std::uint64_t{count} + 1);
    Require(reached > count, "the number of objects");
  }
}

void FillDirectory(benchmark::State& state, Order order) {
  const auto count = static_cast<std::uint32_t>(state.range(0));
  const std::vector<std::string> contents = Contents(count);
  std::vector<std::string> names;
  for (std::uint32_t i = 0; i < count; ++i) names.push_back(LeafName(i));
  for (auto _ : state) {
    Section section;
    PeerRepository repository;
    git_oid tree = {};
    if (order == Order::PerFile) {
      tree = PutOneByOne(repository, names, contents, InOrder(count));
    } else {
      const GitBuilder builder = repository.MakeBuilder();
      for (std::uint32_t i = 0; i < count; ++i) {
        const git_oid id = repository.PutBlob(contents[i]);
        Check(git_treebuilder_insert(nullptr, builder.get(), names[i].c_str(), &id,
                                     GIT_FILEMODE_BLOB));
      }
      tree = repository.Write(builder);
    }
    const git_oid head = repository.Record(tree, {}, 0);
    section.Stop(state);
    section.Report(state, count, order == Order::Batch ? count + 2 : 2 * count + 1);
    Require(repository.Reach(head).size() == count + 2, "the number of objects");
  }
}

void ChangeFiles(benchmark::State& state, Order order) {
  const auto count = static_cast<std::uint32_t>(state.range(0));
  const auto commits = static_cast<std::uint32_t>(state.range(1));
  const std::vector<std::string> base = Contents(count);
  const HistoryPlan plan = PlanHistory(count, commits);
  const std::vector<std::vector<std::string>> contents = Contents(plan);
  for (auto _ : state) {
    PeerRepository repository;
    const git_oid first = repository.Record(repository.BuildTree(base), {}, 0);
    const std::size_t before = repository.Reach(first).size();
    Section section;
    const git_oid head = repository.Replay(first, plan, contents, order == Order::PerFile, 1);
    section.Stop(state);
    const std::size_t reached = repository.Reach(head).size() - before;
    // Five blobs, fifteen trees and a commit, or what is left of them in the end.
    section.Report(state, commits, order == Order::PerFile ? std::uint64_t{commits} * 21 : reached);
    Require(reached > 6 * std::size_t{commits}, "the number of objects");
  }
}

/// Returns the paths that differ between two trees. `from` may be null, which is an empty tree.
std::vector<std::string> ChangedPaths(git_repository* repository, git_tree* from, git_tree* to) {
  git_diff* diff;
  Check(git_diff_tree_to_tree(&diff, repository, from, to, nullptr));
  std::vector<std::string> paths;
  for (std::size_t i = 0; i < git_diff_num_deltas(diff); ++i) {
    paths.emplace_back(git_diff_get_delta(diff, i)->new_file.path);
  }
  git_diff_free(diff);
  return paths;
}

void BM_Diff(benchmark::State& state) {
  const auto count = static_cast<std::uint32_t>(state.range(0));
  PeerRepository repository;
  const DiffPlan plan = PlanDiff(count);
  const git_oid from = repository.BuildTree(Contents(count));
  std::vector<PeerEdit> edits;
  for (const std::uint32_t i : plan.modified) {
    edits.push_back({Path(i), repository.PutBlob(Content(Family::Diff, i, 1))});
  }
  for (const std::uint32_t i : plan.deleted) edits.push_back({Path(i), {}, true});
  for (const std::uint32_t i : plan.added) {
    edits.push_back({Path(i) + 'x', repository.PutBlob(Content(Family::Diff, i, 2))});
  }
  const GitTree before = repository.GetTree(from);
  const GitTree after = repository.GetTree(repository.Edit(before.get(), edits));
  for (auto _ : state) {
    Section section;
    const std::vector<std::string> paths =
        ChangedPaths(repository.Get(), before.get(), after.get());
    section.Stop(state);
    section.Report(state, 1);
    Require(paths.size() == 100, "the number of paths");
  }
}

void BM_DiffFull(benchmark::State& state) {
  const auto count = static_cast<std::uint32_t>(state.range(0));
  PeerRepository repository;
  const GitTree tree = repository.GetTree(repository.BuildTree(Contents(count)));
  for (auto _ : state) {
    Section section;
    const std::vector<std::string> paths = ChangedPaths(repository.Get(), nullptr, tree.get());
    section.Stop(state);
    section.Report(state, 1);
    Require(paths.size() == count, "the number of paths");
  }
}

/// Takes ours wherever a merge left a conflict, and returns how many there were.
int TakeOurs(git_index* index) {
  git_index_conflict_iterator* iterator;
  Check(git_index_conflict_iterator_new(&iterator, index));
  std::vector<std::pair<std::string, git_index_entry>> taken;
  const git_index_entry* root;
  const git_index_entry* ours;
  const git_index_entry* theirs;
  while (git_index_conflict_next(&root, &ours, &theirs, iterator) == 0) {
    taken.emplace_back(ours->path, *ours);
  }
  git_index_conflict_iterator_free(iterator);
  for (auto& [path, entry] : taken) {
    Check(git_index_conflict_remove(index, path.c_str()));
    entry.flags = 0;
    entry.path = path.c_str();
    Check(git_index_add(index, &entry));
  }
  return static_cast<int>(taken.size());
}

void BM_Merge(benchmark::State& state) {
  const auto count = static_cast<std::uint32_t>(state.range(0));
  PeerRepository repository;
  const MergePlan plan = PlanMerge(count);
  const git_oid base = repository.BuildTree(Contents(count));
  const GitTree root = repository.GetTree(base);
  const auto change = [&](Family family, const std::vector<std::uint32_t>& own) {
    std::vector<PeerEdit> edits;
    for (const std::vector<std::uint32_t>& files : {own, plan.both}) {
      for (const std::uint32_t i : files) {
        edits.push_back({Path(i), repository.PutBlob(Content(family, i, 1))});
      }
    }
    return repository.Edit(root.get(), edits);
  };
  const git_oid ours = change(Family::Ours, plan.ours);
  const git_oid theirs = change(Family::Theirs, plan.theirs);
  const GitTree left = repository.GetTree(ours);
  const GitTree right = repository.GetTree(theirs);
  const git_oid first = repository.Record(base, {}, 0);
  const git_oid second = repository.Record(ours, {first}, 1);
  const git_oid third = repository.Record(theirs, {first}, 2);
  for (auto _ : state) {
    git_merge_options options;
    Check(git_merge_options_init(&options, GIT_MERGE_OPTIONS_VERSION));
    options.flags = 0;                  // renames aren't looked for
    options.default_driver = "binary";  // nor is text merged
    Section section;
    git_index* index;
    Check(git_merge_trees(&index, repository.Get(), root.get(), left.get(), right.get(), &options));
    const int conflicts = TakeOurs(index);
    git_oid tree;
    Check(git_index_write_tree_to(&tree, index, repository.Get()));
    git_index_free(index);
    repository.Record(tree, {second, third}, 3);
    section.Stop(state);
    section.Report(state, 1);
    Require(conflicts == 10, "the number of conflicts");
  }
}

void BM_MergeBase(benchmark::State& state) {
  const auto commits = static_cast<std::uint32_t>(state.range(0));
  PeerRepository repository;
  const git_oid tree = repository.BuildTree(Contents(1));
  const git_oid first = repository.Record(tree, {}, 0);
  git_oid one = first;
  for (std::uint32_t i = 1; i < commits; ++i) one = repository.Record(tree, {one}, i);
  const git_oid two = repository.Record(tree, {first}, commits + 1);
  for (auto _ : state) {
    git_oid found;
    Section section;
    Check(git_merge_base(&found, repository.Get(), &one, &two));
    section.Stop(state);
    section.Report(state, 1);
    Require(git_oid_equal(&found, &first) != 0, "the common base");
  }
}

/// A history and the list of its objects, which a repository in memory can't enumerate itself.
struct History {
  History(std::uint32_t files, std::uint32_t commits) {
    const HistoryPlan plan = PlanHistory(files, commits);
    first = repository.Record(repository.BuildTree(Contents(files)), {}, 0);
    head = repository.Replay(first, plan, Contents(plan), false, 1);
    objects = repository.Reach(head);
  }

  PeerRepository repository;
  git_oid first;
  git_oid head;
  std::vector<git_oid> objects;
};

/// Appends a packed object.
void Append(std::string& out, git_odb_object* object) {
  const std::size_t size = git_odb_object_size(object);
  out.append(git_object_type2string(git_odb_object_type(object))).append(1, ' ');
  out.append(std::to_string(size)).append(1, '\0');
  out.append(static_cast<const char*>(git_odb_object_data(object)), size);
}

void SaveTo(std::string& out, const History& history) {
  for (const git_oid& id : history.objects) {
    git_odb_object* object;
    Check(git_odb_read(&object, history.repository.GetDatabase(), &id));
    Append(out, object);
    git_odb_object_free(object);
  }
}

/// A text without characters whose memory is there already.
std::string MappedText() {
  std::string text(std::size_t{160} << 20, 'x');
  text.clear();
  return text;
}

/// Includes the walk that finds the objects: a save has to begin with it.
void BM_Save(benchmark::State& state) {
  History history(static_cast<std::uint32_t>(state.range(0)),
                  static_cast<std::uint32_t>(state.range(1)));
  for (auto _ : state) {
    std::string out = MappedText();
    Section section;
    history.objects = history.repository.Reach(history.head);
    SaveTo(out, history);
    section.Stop(state);
    section.Report(state, 1, history.objects.size());
  }
}

/// Includes the walk that parses the objects: the library gives them parsed.
void BM_Load(benchmark::State& state) {
  const History history(static_cast<std::uint32_t>(state.range(0)),
                        static_cast<std::uint32_t>(state.range(1)));
  std::string saved = MappedText();
  SaveTo(saved, history);
  for (auto _ : state) {
    PeerRepository repository;
    Section section;
    for (const char* at = saved.c_str(); at < saved.c_str() + saved.size();) {
      char* end;
      const std::string type(at, std::string_view(at).find(' '));
      const std::size_t size = std::strtoull(at + type.size() + 1, &end, 10);
      git_oid id;
      Check(git_odb_write(&id, repository.GetDatabase(), end + 1, size,
                          git_object_string2type(type.c_str())));
      at = end + 1 + size;
    }
    const std::size_t reached = repository.Reach(history.head).size();
    section.Stop(state);
    section.Report(state, 1, history.objects.size());
    Require(reached == history.objects.size(), "the number of objects");
  }
}

/// libgit2 has no purge in memory: its user marks what is live and copies that to a new repository.
void BM_Purge(benchmark::State& state) {
  const auto files = static_cast<std::uint32_t>(state.range(0));
  const auto commits = static_cast<std::uint32_t>(state.range(1));
  const auto dropped = static_cast<std::uint32_t>(state.range(2));
  for (auto _ : state) {
    History history(files, commits);
    const HistoryPlan plan = PlanDroppedBranch(files, dropped);
    history.repository.Replay(history.first, plan, Contents(plan), false, commits + 1);
    Section section;
    PeerRepository fresh;
    for (const git_oid& id : history.repository.Reach(history.head)) {
      git_odb_object* object;
      Check(git_odb_read(&object, history.repository.GetDatabase(), &id));
      git_oid again;
      Check(git_odb_write(&again, fresh.GetDatabase(), git_odb_object_data(object),
                          git_odb_object_size(object), git_odb_object_type(object)));
      git_odb_object_free(object);
    }
    history.repository.Reset();
    section.Stop(state);
    section.Report(state, 1);
    Require(fresh.Reach(history.head).size() == history.objects.size(), "what is left");
  }
}

void Once(benchmark::internal::Benchmark* benchmark) {
  benchmark->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
}

void Repeated(benchmark::internal::Benchmark* benchmark) {
  benchmark->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);
}

BENCHMARK(BM_Hash)->Name("hash")->Arg(64)->Arg(4 << 10)->Arg(1 << 20)->UseManualTime();
BENCHMARK_CAPTURE(ImportFiles, , Order::Batch)
    ->Name("import/batch")
    ->Arg(10000)
    ->Arg(100000)
    ->Apply(Once);
BENCHMARK_CAPTURE(ImportFiles, , Order::PerFile)
    ->Name("import/perfile")
    ->Arg(10000)
    ->Arg(100000)
    ->Apply(Once);
BENCHMARK_CAPTURE(ImportFiles, , Order::Shuffled)
    ->Name("import/shuffled")
    ->Arg(10000)
    ->Arg(100000)
    ->Apply(Once);
BENCHMARK_CAPTURE(FillDirectory, , Order::Batch)->Name("flat/batch")->Arg(10000)->Apply(Once);
BENCHMARK_CAPTURE(FillDirectory, , Order::PerFile)->Name("flat/perfile")->Arg(10000)->Apply(Once);
BENCHMARK_CAPTURE(ChangeFiles, , Order::Batch)
    ->Name("history/batch")
    ->Args({10000, 1000})
    ->Apply(Once);
BENCHMARK_CAPTURE(ChangeFiles, , Order::PerFile)
    ->Name("history/perfile")
    ->Args({10000, 1000})
    ->Apply(Once);
BENCHMARK(BM_Diff)->Name("diff")->Arg(10000)->Arg(100000)->Apply(Repeated);
BENCHMARK(BM_DiffFull)->Name("diff/full")->Arg(10000)->Arg(100000)->Apply(Repeated);
BENCHMARK(BM_Merge)->Name("merge")->Arg(10000)->Arg(100000)->Apply(Repeated);
BENCHMARK(BM_MergeBase)->Name("mergebase/far")->Arg(10000)->Arg(100000)->Apply(Repeated);
BENCHMARK(BM_Save)->Name("save/stream")->Args({10000, 1000})->Apply(Repeated);
BENCHMARK(BM_Load)->Name("load/stream")->Args({10000, 1000})->Apply(Repeated);
BENCHMARK(BM_Purge)->Name("purge")->Args({10000, 1000, 1000})->Apply(Once);

/// Returns how fast the library hashes. A build that uses the processor's instructions for SHA-1 is
/// several times as fast as one that looks for collisions in software.
std::string HashRate() {
  constexpr std::size_t kSize = 16 << 20;
  const std::string content(kSize, 'x');
  git_oid id;
  const auto start = std::chrono::steady_clock::now();
  Check(git_odb_hash(&id, content.data(), content.size(), GIT_OBJECT_BLOB));
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  return std::to_string(static_cast<int>(kSize / elapsed.count() / 1e6)) + " MB/s";
}

}  // namespace
}  // namespace TalVcs::Bench

int main(int argc, char** argv) {
  using TalVcs::Bench::Check;
  Check(git_libgit2_init());
  Check(git_libgit2_opts(GIT_OPT_SET_SEARCH_PATH, GIT_CONFIG_LEVEL_GLOBAL, ""));
  Check(git_libgit2_opts(GIT_OPT_SET_SEARCH_PATH, GIT_CONFIG_LEVEL_XDG, ""));
  Check(git_libgit2_opts(GIT_OPT_SET_SEARCH_PATH, GIT_CONFIG_LEVEL_SYSTEM, ""));
  Check(git_libgit2_opts(GIT_OPT_ENABLE_STRICT_HASH_VERIFICATION, 0));
  Check(git_libgit2_opts(GIT_OPT_ENABLE_STRICT_OBJECT_CREATION, 0));
  int major = 0;
  int minor = 0;
  int revision = 0;
  Check(git_libgit2_version(&major, &minor, &revision));
  benchmark::AddCustomContext("peer", "libgit2 " + std::to_string(major) + "." +
                                          std::to_string(minor) + "." + std::to_string(revision) +
                                          ", SHA-1 at " + TalVcs::Bench::HashRate());
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  git_libgit2_shutdown();
  return 0;
}
