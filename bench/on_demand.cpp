#include <bench/host.h>
#include <bench/measure.h>
#include <bench/store.h>
#include <kit/open/load.h>
#include <kit/open/open.h>
#include <kit/open/save.h>
#include <kit/store/directory_object_store.h>
#include <kit/store/memory_object_store.h>
#include <malloc.h>
#include <stores/sqlite/sqlite_store.h>
#include <sys/resource.h>
#include <talvcs/storage/on_demand_storage.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

// What opening, saving and walking a repository on demand cost. Each run is a process of its own,
// which works on one store and prints its figures as a line of JSON; on_demand.py makes a table of
// them.

namespace TalVcs::Bench {
namespace {

using Store = std::shared_ptr<Kit::IObjectStore>;

constexpr std::uint32_t kEditSeed = 1000000;

double Seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

double ProcessorSeconds() {
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  return Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
}

double HeapBytes() {
  const struct mallinfo2 info = mallinfo2();
  return static_cast<double>(info.uordblks + info.hblkhd);
}

/// Returns the bytes that this process has handed to the system for writing.
double WrittenBytes() {
  std::ifstream io("/proc/self/io");
  std::string key;
  double value = 0;
  while (io >> key >> value) {
    if (key == "wchar:") return value;
  }
  return 0;
}

/// The figures of one section of the run: elapsed and processor time, live heap, bytes written.
class Figures {
 public:
  Figures()
      : m_heap(HeapBytes()),
        m_written(WrittenBytes()),
        m_processor(ProcessorSeconds()),
        m_start(std::chrono::steady_clock::now()) {}

  void Stop() {
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - m_start;
    m_values["wall_ms"] = elapsed.count() * 1e3;
    m_values["processor_ms"] = (ProcessorSeconds() - m_processor) * 1e3;
    m_values["heap_bytes"] = HeapBytes() - m_heap;
    m_values["written_bytes"] = WrittenBytes() - m_written;
  }

  void Add(const std::string& name, double value) { m_values[name] = value; }

  void Print() const {
    const char* separator = "{";
    for (const auto& [name, value] : m_values) {
      std::printf("%s\"%s\": %.6g", separator, name.c_str(), value);
      separator = ", ";
    }
    std::printf("}\n");
  }

 private:
  std::map<std::string, double> m_values;
  double m_heap;
  double m_written;
  double m_processor;
  std::chrono::steady_clock::time_point m_start;
};

/// The history of the other benchmarks: an import, then commits of five files each.
Repository MakeHistory(std::uint32_t files, std::uint32_t commits) {
  Repository repository = MakeRepository();
  Import(repository, Files(files), InOrder(files), Way::Batch);
  Replay(repository, Changes(PlanHistory(files, commits)), Way::Batch);
  repository.UpdateStorage();
  return repository;
}

/// A document of one file in a history of `commits` autosaves.
Repository MakeAutosaves(std::uint32_t commits) {
  Repository repository = MakeRepository();
  for (std::uint32_t number = 0; number < commits; ++number) {
    Commit commit(&repository, false);
    commit.AddBlob(&repository, Widen("document"), MakeBlob(Message(number)));
    Record(repository, commit, number);
  }
  repository.UpdateStorage();
  return repository;
}

Repository Make(const std::string& kind, std::uint32_t files, std::uint32_t commits) {
  return kind == "history" ? MakeHistory(files, commits) : MakeAutosaves(commits);
}

void Fill(Kit::IObjectStore& store, Repository& repository) {
  Require(Kit::Save(repository, store).ok(), "the history is saved");
}

Store OpenStore(const std::string& kind, const std::string& path, bool durable) {
  if (kind == "directory") {
    const Kit::DirectoryObjectStoreOptions options{.durable = durable};
    Kit::Result<Kit::DirectoryObjectStore> store = Kit::DirectoryObjectStore::Open(path, options);
    if (!store) store = Kit::DirectoryObjectStore::Create(path, options);
    return std::make_shared<Kit::DirectoryObjectStore>(std::move(store).value());
  }
  Require(kind == "sqlite", "the kind of store is known");
  return std::make_shared<Kit::SqliteStore>(
      Kit::SqliteStore::Open(path, {.durable = durable}).value());
}

/// Commits a new content of one file.
void Edit(Repository& repository, const WideText& path, std::uint32_t number) {
  Commit commit(&repository, false);
  commit.AddBlob(&repository, path, MakeBlob(Content(Family::Ours, 0, kEditSeed + number)));
  Record(repository, commit, kEditSeed + number);
}

void ListRootAndReadFile(Repository& repository, const WideText& path) {
  const cow_ptr<Commit> head = repository.GetHead();
  Require(!head->GetTree()->GetRoot()->GetLocalObjectPaths().empty(), "the root has entries");
  Require(head->GetBlob(path)->GetData().GetSize() > 0, "the file has content");
}

Figures OpenAndRead(const Store& store, const WideText& path) {
  Figures figures;
  Kit::OpenedRepository opened = Kit::Open(store).value();
  ListRootAndReadFile(opened.GetRepository(), path);
  figures.Stop();
  return figures;
}

/// Edits one file `count` times, each time with a commit and a save, and prints the medians.
Figures EditAndSave(const Store& store, const WideText& path, std::uint32_t count) {
  std::vector<double> wall;
  std::vector<double> processor;
  Figures figures;
  const double written = WrittenBytes();
  Kit::OpenedRepository opened = Kit::Open(store).value();
  for (std::uint32_t i = 0; i < count; ++i) {
    const auto start = std::chrono::steady_clock::now();
    const double processor_start = ProcessorSeconds();
    Edit(opened.GetRepository(), path, i + static_cast<std::uint32_t>(std::time(nullptr)));
    Kit::Save(opened).value();
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    wall.push_back(elapsed.count() * 1e3);
    processor.push_back((ProcessorSeconds() - processor_start) * 1e3);
  }
  figures.Stop();
  std::ranges::sort(wall);
  std::ranges::sort(processor);
  figures.Add("save_wall_ms", wall[wall.size() / 2]);
  figures.Add("save_worst_ms", wall.back());
  figures.Add("save_processor_ms", processor[processor.size() / 2]);
  figures.Add("save_written_bytes", (WrittenBytes() - written) / count);
  return figures;
}

/// What a walk over a whole history has met: each object once.
struct Walked {
  std::unordered_set<Id> seen;
  std::uint64_t commits = 0;
  std::uint64_t bytes = 0;
};

void WalkTree(const Tree& tree, OnDemandStorage* storage, Walked& walked) {
  std::vector<Id> ids;
  std::vector<WideText> names;
  for (const WideText& name : tree.GetLocalBlobPaths()) {
    Id id = *tree.GetIdByPath(name);
    if (!walked.seen.insert(id).second) continue;
    ids.push_back(std::move(id));
    names.push_back(name);
  }
  if (storage != nullptr) storage->ExpectBlobs(ids);
  for (const WideText& name : names) walked.bytes += tree.GetLocalBlob(name)->GetData().GetSize();
  for (const WideText& name : tree.GetLocalSubtreePaths()) {
    if (!walked.seen.insert(*tree.GetIdByPath(name)).second) continue;
    WalkTree(*tree.GetLocalTree(name), storage, walked);
  }
}

Walked Walk(Repository& repository) {
  OnDemandStorage* const storage = OnDemandStorage::From(repository.GetStorage());
  Walked walked;
  for (cow_ptr<Commit> commit = repository.GetHead(); commit; commit = commit->GetParent()) {
    ++walked.commits;
    const cow_ptr<CommitTree> tree = commit->GetTree();
    if (walked.seen.insert(tree->GetRootId()).second) WalkTree(*tree->GetRoot(), storage, walked);
  }
  return walked;
}

void AddWalk(Figures& figures, const Walked& walked) {
  figures.Add("commits", static_cast<double>(walked.commits));
  figures.Add("objects", static_cast<double>(walked.commits + walked.seen.size()));
  figures.Add("content_bytes", static_cast<double>(walked.bytes));
}

/// Opens on demand, walks everything, and lets go of it.
Figures OpenAndWalk(const Store& store) {
  Figures figures;
  Kit::OpenedRepository opened = Kit::Open(store).value();
  const double before = HeapBytes();
  {
    const Walked walked = Walk(opened.GetRepository());
    figures.Stop();
    AddWalk(figures, walked);
  }
  opened.Trim();
  figures.Add("heap_after_trim_bytes", HeapBytes() - before);
  return figures;
}

/// Loads everything, and walks it.
Figures LoadAndWalk(const Store& store) {
  Figures figures;
  Kit::OpenedRepository loaded = Kit::Load(store).value();
  const Walked walked = Walk(loaded.GetRepository());
  figures.Stop();
  AddWalk(figures, walked);
  return figures;
}

/// Loads everything into an ordinary repository from an ordinary store, and walks it.
Figures DeserializeAndWalk(IBlobReader& reader) {
  Figures figures;
  Repository repository = MakeRepository();
  Require(Deserializer(&reader, WideText()).Deserialize(&repository), "the history loads");
  const double loaded = ProcessorSeconds();
  const Walked walked = Walk(repository);
  figures.Stop();
  figures.Add("walk_processor_ms", (ProcessorSeconds() - loaded) * 1e3);
  AddWalk(figures, walked);
  return figures;
}

/// What every run is given: the history and where it is.
struct Run {
  std::string what;
  std::string store;
  std::string path;
  std::string history;
  std::uint32_t files;
  std::uint32_t commits;

  WideText File() const {
    return history == "history" ? Widen(Path(files / 2)) : Widen("document");
  }
};

Store StoreOf(const Run& run) {
  if (run.store != "memory") return OpenStore(run.store, run.path, run.what != "make");
  const auto store = std::make_shared<Kit::MemoryObjectStore>();
  Repository repository = Make(run.history, run.files, run.commits);
  Fill(*store, repository);
  repository = MakeRepository();
  // The first allocations after so much was freed put the allocator's lists in order.
  malloc_trim(0);
  OpenAndRead(store, run.File());
  return store;
}

Figures Do(const Run& run) {
  constexpr std::uint32_t kSaves = 21;
  if (run.what == "deserialize") {
    Repository repository = Make(run.history, run.files, run.commits);
    SharingStore store;
    Serializer(&store, WideText()).Serialize(repository.GetStorage());
    repository = MakeRepository();
    return DeserializeAndWalk(store);
  }
  const Store store = StoreOf(run);
  malloc_trim(0);
  if (run.what == "make") {
    Figures figures;
    Repository repository = Make(run.history, run.files, run.commits);
    Fill(*store, repository);
    figures.Stop();
    return figures;
  }
  if (run.what == "open") return OpenAndRead(store, run.File());
  if (run.what == "save") return EditAndSave(store, run.File(), kSaves);
  if (run.what == "walk") return OpenAndWalk(store);
  Require(run.what == "load", "the run is known");
  return LoadAndWalk(store);
}

}  // namespace
}  // namespace TalVcs::Bench

int main(int count, char** arguments) {
  if (count != 7) {
    std::fprintf(stderr,
                 "usage: talvcs_bench_on_demand make|open|save|walk|load|deserialize\n"
                 "           memory|directory|sqlite PATH history|autosaves FILES COMMITS\n");
    return 1;
  }
  const TalVcs::Bench::Run run{arguments[1],
                               arguments[2],
                               arguments[3],
                               arguments[4],
                               static_cast<std::uint32_t>(std::strtoul(arguments[5], nullptr, 10)),
                               static_cast<std::uint32_t>(std::strtoul(arguments[6], nullptr, 10))};
  TalVcs::Bench::Do(run).Print();
  return 0;
}
