// Measures one store with one history; bench/stores.py runs it for all and prints the table.
//
//     talvcs_bench_stores HISTORY import FILE          writes the history for git fast-import
//     talvcs_bench_stores HISTORY STORE FOLDER         measures, in an empty folder
//
// HISTORY: edits, edits=COMMITS, bench, or file=PATH
// STORE:   directory, directory-plain, sqlite, sqlite-plain, zip, table
//
// Prints one line of figures, NAME=VALUE separated by blanks: seconds, bytes in blocks, numbers.
// Autosaves are durable and take time as it passes; everything else is processor time. Each
// autosave is followed by an insertion of the same objects into a table, because the medium may be
// three times as slow a minute later.

#include <bench/blob_table.h>
#include <bench/saves.h>
#include <bench/workloads.h>
#include <kit/open/clean_up.h>
#include <kit/open/open.h>
#include <kit/open/save.h>
#include <kit/open/verify.h>
#include <kit/store/directory_object_store.h>
#include <kit/store/passing_store.h>
#include <stores/sqlite/sqlite_store.h>
#include <sys/stat.h>
#ifdef TALVCS_BENCH_ZIP
#include <stores/zip/zip_store.h>
#endif
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Bench {
namespace {

constexpr std::uint32_t kAutosaves = 31;
constexpr std::size_t kReads = 1000;
constexpr int kOpenings = 11;

using OpenStore = std::function<std::shared_ptr<Kit::IObjectStore>(bool durable)>;

/// Time as it passes, for what waits for the medium.
template <class Action>
double Seconds(Action action) {
  const auto start = std::chrono::steady_clock::now();
  action();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Processor time, which stays about the same on a busy machine.
template <class Action>
double ProcessorSeconds(Action action) {
  const std::clock_t start = std::clock();
  action();
  return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void Print(const std::string& name, double value) { std::cout << name << '=' << value << ' '; }

/// What a folder takes on the disk, the files and the folders themselves.
void PrintDisk(const std::string& suffix, const std::filesystem::path& folder) {
  ::sync();
  double bytes = 0;
  double files = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    struct stat status {};
    if (::stat(entry.path().c_str(), &status) != 0) continue;
    bytes += 512.0 * static_cast<double>(status.st_blocks);
    if (entry.is_regular_file()) ++files;
  }
  Print("bytes" + suffix, bytes);
  Print("files" + suffix, files);
}

History MakeHistory(const std::string& name) {
  constexpr std::uint32_t kCommits = 10000;
  if (name == "edits") return MakeEdits(kCommits);
  if (name.starts_with("edits=")) {
    return MakeEdits(static_cast<std::uint32_t>(std::stoul(name.substr(6))));
  }
  if (name.starts_with("file=")) return ReadHistory(name.substr(5));
  return MakeBenchHistory();
}

template <class Store>
std::shared_ptr<Kit::IObjectStore> Share(Kit::Result<Store> store) {
  return std::make_shared<Store>(std::move(store).value());
}

OpenStore OpenerOf(const std::string& kind, const std::filesystem::path& folder) {
  if (kind.starts_with("directory")) {
    const bool compress = kind == "directory";
    Kit::DirectoryObjectStore::Create(folder / "store").value();
    return [=](bool durable) {
      Kit::DirectoryObjectStoreOptions options;
      options.durable = durable;
      options.compress = compress;
      return Share(Kit::DirectoryObjectStore::Open(folder / "store", options));
    };
  }
  if (kind.starts_with("sqlite")) {
    const bool compress = kind == "sqlite";
    return [=](bool durable) {
      Kit::SqliteOptions options;
      options.durable = durable;
      options.compress = compress;
      return Share(Kit::SqliteStore::Open(folder / "document.tal", options));
    };
  }
#ifdef TALVCS_BENCH_ZIP
  if (kind == "zip") {
    return [=](bool durable) {
      Kit::ZipOptions options;
      options.durable = durable;
      return Share(Kit::ZipStore::Open(folder / "document.zip", options));
    };
  }
#endif
  std::cerr << "no such store: " << kind << '\n';
  std::exit(1);
}

std::vector<Id> IdsOf(const Saved& objects) {
  std::vector<Id> ids;
  for (const Kit::StoredObject& object : objects) ids.push_back(object.id);
  return ids;
}

/// Saves the history as a host would have, commit by commit; all in one save `at_once`.
void Fill(Kit::IObjectStore& store, const std::vector<Saved>& saves, bool at_once) {
  Id head;
  for (const Saved& saved : saves) {
    store.Missing(IdsOf(saved)).value();
    store.Write(saved).value();
    if (at_once) continue;
    store.MoveHeads({{Kit::HeadMove{"master", head, saved.back().id}}}).value();
    head = saved.back().id;
  }
  if (at_once) store.MoveHeads({{Kit::HeadMove{"master", Id(), saves.back().back().id}}}).value();
}

/// Returns ids of all kinds from the whole history.
std::vector<Id> ChooseIds(const std::vector<Saved>& saves) {
  std::vector<Id> all;
  for (const Saved& saved : saves) {
    for (const Kit::StoredObject& object : saved) all.push_back(object.id);
  }
  Random random(5);
  std::vector<Id> ids;
  for (std::size_t index = 0; index < kReads; ++index) ids.push_back(all[random.Below(all.size())]);
  return ids;
}

/// Passes saves on, and keeps the objects of the last one.
class LastSave final : public Kit::PassingStore {
 public:
  using PassingStore::PassingStore;

  Kit::Status Write(std::span<const Kit::StoredObject> objects) override {
    m_objects.insert(m_objects.end(), objects.begin(), objects.end());
    return PassingStore::Write(objects);
  }
  Saved Take() { return std::exchange(m_objects, {}); }

 private:
  Saved m_objects;
};

/// Autosaves into the store and, in turn, into a table of the same objects in `folder`.
void MeasureAutosaves(const std::shared_ptr<Kit::IObjectStore>& store,
                      const std::filesystem::path& folder, const History& history,
                      const std::vector<Saved>& saves) {
  std::filesystem::create_directory(folder);
  {
    BlobTable table(folder / "table.db", false);
    for (const Saved& saved : saves) table.Insert(saved);
  }
  ::sync();
  std::vector<double> autosaves;
  std::vector<double> insertions;
  {
    BlobTable table(folder / "table.db", true);
    const auto watched = std::make_shared<LastSave>(store);
    Kit::OpenedRepository opened = Kit::Open(watched).value();
    for (std::uint32_t number = 0; number < kAutosaves; ++number) {
      EditFile(opened.GetRepository(), history.editedPath, number);
      autosaves.push_back(Seconds([&] { Kit::Save(opened).value(); }));
      const Saved saved = watched->Take();
      insertions.push_back(Seconds([&] { table.Insert(saved); }));
    }
  }
  std::filesystem::remove_all(folder);
  Print("autosave", Median(autosaves));
  Print("autosave-least", *std::min_element(autosaves.begin(), autosaves.end()));
  Print("insertion", Median(insertions));
}

void MeasureStore(const std::string& kind, const std::filesystem::path& folder, History& history,
                  const std::vector<Saved>& saves) {
  const OpenStore open = OpenerOf(kind, folder);
  Print("fill", ProcessorSeconds([&] { Fill(*open(false), saves, kind == "zip"); }));
  PrintDisk("", folder);

  std::vector<double> openings;
  for (int round = 0; round < kOpenings; ++round) {
    openings.push_back(ProcessorSeconds([&] { Kit::Open(open(true)).value(); }));
  }
  Print("open", Median(openings));
  const std::vector<Id> ids = ChooseIds(saves);
  const std::shared_ptr<Kit::IObjectStore> store = open(true);
  Print("reads", ProcessorSeconds([&] {
          for (const Id& id : ids) {
            store
                ->Read({&id, 1},
                       [](const Id& /*id*/, Kit::Result<Buffer> packed) { packed.value(); })
                .value();
          }
        }));
  Print("verify", ProcessorSeconds([&] { Kit::Verify(*store).value(); }));

  MeasureAutosaves(store, folder / "table", history, saves);
  Print("cleanup", ProcessorSeconds([&] { Kit::CleanUp(*store).value(); }));
  PrintDisk("-clean", folder);
}

void MeasureTable(const std::filesystem::path& folder, History& history,
                  const std::vector<Saved>& saves) {
  const std::filesystem::path path = folder / "table.db";
  Print("fill", ProcessorSeconds([&] {
          BlobTable table(path, false);
          for (const Saved& saved : saves) table.Insert(saved);
        }));
  PrintDisk("", folder);
  const std::vector<Id> ids = ChooseIds(saves);
  std::vector<double> openings;
  for (int round = 0; round < kOpenings; ++round) {
    openings.push_back(ProcessorSeconds([&] { BlobTable(path, true).Read(ids.front()); }));
  }
  Print("open", Median(openings));
  BlobTable table(path, true);
  Print("reads", ProcessorSeconds([&] {
          for (const Id& id : ids) table.Read(id);
        }));
  Print("verify", ProcessorSeconds([&] { table.Verify(); }));

  std::vector<double> autosaves;
  for (std::uint32_t number = 0; number < kAutosaves; ++number) {
    EditFile(history.repository, history.editedPath, number);
  }
  const std::vector<Saved> all = SavesOf(history.repository);
  for (std::size_t index = saves.size(); index < all.size(); ++index) {
    autosaves.push_back(Seconds([&] { table.Insert(all[index]); }));
  }
  Print("autosave", Median(autosaves));
  Print("autosave-least", *std::min_element(autosaves.begin(), autosaves.end()));
  Print("cleanup", ProcessorSeconds([&] { table.Vacuum(); }));
  PrintDisk("-clean", folder);
}

int Run(const std::vector<std::string>& arguments) {
  if (arguments.size() != 3) {
    std::cerr << "usage: talvcs_bench_stores HISTORY (import FILE | STORE FOLDER)\n";
    return 2;
  }
  History history = MakeHistory(arguments[0]);
  if (arguments[1] == "import") {
    std::ofstream out(arguments[2], std::ios::binary);
    WriteFastImport(history.repository, out);
    return out.flush() ? 0 : 1;
  }
  const std::vector<Saved> saves = SavesOf(history.repository);
  double objects = 0;
  double packed_bytes = 0;
  for (const Saved& saved : saves) {
    for (const Kit::StoredObject& object : saved) {
      ++objects;
      packed_bytes += static_cast<double>(object.packed.GetSize());
    }
  }
  std::cout.precision(12);
  Print("commits", static_cast<double>(saves.size()));
  Print("objects", objects);
  Print("packed", packed_bytes);
  if (arguments[1] == "table") {
    MeasureTable(arguments[2], history, saves);
  } else {
    MeasureStore(arguments[1], arguments[2], history, saves);
  }
  std::cout << '\n';
  return 0;
}

}  // namespace
}  // namespace TalVcs::Bench

int main(int count, char** arguments) {
  return TalVcs::Bench::Run(std::vector<std::string>(arguments + 1, arguments + count));
}
