#include <bench/host.h>
#include <bench/measure.h>
#include <kit/batch_edit.h>

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

}  // namespace TalVcs::Bench
