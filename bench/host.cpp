#include <bench/host.h>
#include <bench/measure.h>
#include <kit/batch_edit.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace TalVcs::Bench {
namespace {

/// Adds a file to the list of edits if there is one, else to the commit.
void AddFile(Kit::BatchEdit* together, Commit& commit, Repository& repository, const WideText& path,
             const std::string& content) {
  if (together != nullptr) {
    together->AddBlob(path, MakeBlob(content));
  } else {
    Require(commit.AddBlob(&repository, path, MakeBlob(content)) != nullptr, "the blob is stored");
  }
}

void ApplyTo(Commit& commit, Repository& repository, const Kit::BatchEdit& together) {
  Require(together.ApplyTo(&repository, commit) == together.GetCount(), "the edits are made");
}

std::uint64_t PackedSize(const Object& object) {
  const std::uint64_t size = object.GetData().GetSize();
  return static_cast<std::uint64_t>(object.GetHeader().GetLength()) + 2 +
         std::to_string(size).size() + size;
}

// The layout of a 64-bit build with libstdc++ and glibc.
constexpr double kCountsBytes = 16;       // of a shared pointer, before the object
constexpr double kTextHeadBytes = 8;      // before the characters of a shared text
constexpr double kContentHeadBytes = 24;  // before the bytes of a block
constexpr double kTerminatorBytes = 2;

/// Returns what malloc takes for a piece beyond its size: it has a header of 8 bytes, and pieces
/// are multiples of 16 bytes, 32 at least.
double SlackOf(double size) { return std::max(32.0, std::ceil((size + 8) / 16) * 16) - size; }

double ContentBytes(const Blob& blob) { return static_cast<double>(blob.GetData().GetSize()); }
double ContentBytes(const Tree&) { return 0; }
double ContentBytes(const Commit&) { return 0; }

template <class T>
void AddParts(const std::unordered_map<Id, cow_ptr<T>>& table, HeapParts& parts) {
  constexpr double kNodeBytes = sizeof(void*) + sizeof(std::pair<const Id, cow_ptr<T>>) + 8;
  constexpr double kObjectBytes = sizeof(T) + kCountsBytes;
  for (const auto& [id, object] : table) {
    const double content = ContentBytes(*object);
    const double id_text = 2.0 * id.View().length + kTerminatorBytes;
    parts.content += content;
    parts.ids += id_text;
    parts.tables += kNodeBytes;
    parts.control += kObjectBytes + kTextHeadBytes;
    parts.slack += SlackOf(kNodeBytes) + SlackOf(kObjectBytes) + SlackOf(kTextHeadBytes + id_text);
    if (content == 0) continue;
    parts.control += kContentHeadBytes;
    parts.slack += SlackOf(kContentHeadBytes + content);
  }
  parts.tables += static_cast<double>(table.bucket_count() * sizeof(void*));
}

template <class Table>
void AddVolume(const Table& table, Volume& volume) {
  for (const auto& [id, object] : table) {
    ++volume.objects;
    volume.bytes += PackedSize(*object);
  }
}

}  // namespace

WideText Widen(std::string_view ascii) { return WideText(TalStringT<char>(ascii)); }

Blob MakeBlob(std::string_view bytes) {
  Buffer buffer;
  buffer.Append(bytes.data(), bytes.size());
  return Blob(std::move(buffer));
}

Repository MakeRepository() { return Repository(std::make_unique<MemObjectsStorage>()); }

Files::Files(std::uint32_t count) {
  for (std::uint32_t i = 0; i < count; ++i) {
    contents.push_back(Content(Family::Base, i, 0));
    paths.push_back(Widen(Path(i)));
    names.push_back(Widen(LeafName(i)));
  }
}

Changes::Changes(const HistoryPlan& changes) : plan(changes) {
  for (const std::vector<Change>& commit : plan) {
    contents.emplace_back();
    paths.emplace_back();
    for (const Change& change : commit) {
      contents.back().push_back(Content(change));
      paths.back().push_back(Widen(Path(change.index)));
    }
  }
}

cow_ptr<Commit> Record(Repository& repository, Commit& commit, std::uint32_t number) {
  commit.SetAuthorName(Widen(kAuthorName));
  commit.SetAuthorEmail(Widen(kAuthorEmail));
  commit.SetDescription(Widen(Message(number)));
  return repository.DoCommit(commit);
}

cow_ptr<Commit> Import(Repository& repository, const Files& files,
                       const std::vector<std::uint32_t>& order, Way way) {
  Commit commit(&repository, false);
  Kit::BatchEdit together;
  for (const std::uint32_t i : order) {
    AddFile(way == Way::Batch ? &together : nullptr, commit, repository, files.paths[i],
            files.contents[i]);
  }
  ApplyTo(commit, repository, together);
  return Record(repository, commit, 0);
}

cow_ptr<Commit> Replay(Repository& repository, const Changes& changes, Way way,
                       std::uint32_t number) {
  cow_ptr<Commit> head;
  for (std::size_t c = 0; c < changes.plan.size(); ++c) {
    Commit commit(&repository, false);
    Kit::BatchEdit together;
    for (std::size_t i = 0; i < changes.plan[c].size(); ++i) {
      AddFile(way == Way::Batch ? &together : nullptr, commit, repository, changes.paths[c][i],
              changes.contents[c][i]);
    }
    ApplyTo(commit, repository, together);
    head = Record(repository, commit, number + static_cast<std::uint32_t>(c));
  }
  return head;
}

cow_ptr<Commit> Chain(Repository& repository, cow_ptr<Commit> parent, std::uint32_t count,
                      std::uint32_t number, std::vector<cow_ptr<Commit>>* made) {
  const WideText name = Widen(kAuthorName);
  const WideText email = Widen(kAuthorEmail);
  for (std::uint32_t i = 0; i < count; ++i) {
    Commit commit(parent, false);
    commit.SetAuthorName(name);
    commit.SetAuthorEmail(email);
    commit.SetDescription(Widen(Message(number + i)));
    commit.SetCommitTime(Time::FromTimeT(kFirstTime + number + i));
    parent = repository.SyncWithStorage(Share(std::move(commit)));
    if (made != nullptr) made->push_back(parent);
  }
  return parent;
}

Volume Measure(const Repository& repository) {
  Volume volume;
  const IObjectsStorage& storage = *repository.GetStorage();
  AddVolume(storage.GetBlobs(), volume);
  AddVolume(storage.GetTrees(), volume);
  AddVolume(storage.GetCommits(), volume);
  return volume;
}

HeapParts& HeapParts::operator-=(const HeapParts& other) {
  content -= other.content;
  ids -= other.ids;
  tables -= other.tables;
  control -= other.control;
  slack -= other.slack;
  return *this;
}

HeapParts SplitHeap(const Repository& repository) {
  HeapParts parts;
  const IObjectsStorage& storage = *repository.GetStorage();
  AddParts(storage.GetBlobs(), parts);
  AddParts(storage.GetTrees(), parts);
  AddParts(storage.GetCommits(), parts);
  return parts;
}

void ReportHeapParts(benchmark::State& state, const HeapParts& parts, std::uint64_t objects) {
  const auto report = [&](const char* name, double bytes) {
    state.counters[name] = bytes / static_cast<double>(objects);
  };
  report("content_per_object", parts.content);
  report("ids_per_object", parts.ids);
  report("tables_per_object", parts.tables);
  report("control_per_object", parts.control);
  report("slack_per_object", parts.slack);
}

}  // namespace TalVcs::Bench
