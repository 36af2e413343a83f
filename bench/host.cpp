#include <bench/host.h>
#include <bench/measure.h>

#include <algorithm>
#include <map>
#include <unordered_set>

namespace TalVcs::Bench {
namespace {

void AddFile(Commit& commit, Repository& repository, const WideText& path,
             const std::string& content) {
  Require(commit.AddBlob(&repository, path, MakeBlob(content)) != nullptr, "the blob is stored");
}

/// Builds the directories bottom up, out of one blob after the other in the order of the paths.
Tree BuildRoot(Repository& repository, const Files& files) {
  const auto count = static_cast<std::uint32_t>(files.contents.size());
  Tree root;
  for (std::uint32_t top = 0; top < count; top += kFilesPerTop) {
    Tree middle;
    for (std::uint32_t leaf = top; leaf < std::min(count, top + kFilesPerTop);
         leaf += kFilesPerLeaf) {
      Tree directory;
      for (std::uint32_t i = leaf; i < std::min(count, leaf + kFilesPerLeaf); ++i) {
        directory.AddBlob(&repository, files.names[i], MakeBlob(files.contents[i]));
      }
      middle.AddTree(&repository, Widen(MiddleName(leaf / kFilesPerLeaf)), directory);
    }
    root.AddTree(&repository, Widen(TopName(top / kFilesPerLeaf)), middle);
  }
  return root;
}

/// Changes the files of one commit, touching each directory once.
Tree ChangeTogether(Repository& repository, const Tree& base, const std::vector<Change>& changes,
                    const std::vector<std::string>& contents) {
  std::map<std::uint32_t, std::map<std::uint32_t, std::vector<std::size_t>>> places;
  for (std::size_t i = 0; i < changes.size(); ++i) {
    places[changes[i].index / kFilesPerTop][changes[i].index / kFilesPerLeaf].push_back(i);
  }
  Tree root = base;
  for (const auto& [top, leaves] : places) {
    const WideText topName = Widen(TopName(top * 10));
    Tree middle = *root.GetLocalTree(topName);
    for (const auto& [leaf, files] : leaves) {
      const WideText leafName = Widen(MiddleName(leaf));
      Tree directory = *middle.GetLocalTree(leafName);
      for (const std::size_t i : files) {
        directory.AddBlob(&repository, Widen(LeafName(changes[i].index)), MakeBlob(contents[i]));
      }
      middle.AddTree(&repository, leafName, directory);
    }
    root.AddTree(&repository, topName, middle);
  }
  return root;
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
    contents.push_back(Content(Family::kBase, i, 0));
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
  if (way == Way::kPerFile) {
    for (const std::uint32_t i : order) {
      AddFile(commit, repository, files.paths[i], files.contents[i]);
    }
  } else {
    commit.ReplaceRoot(&repository, Share(BuildRoot(repository, files)));
  }
  return Record(repository, commit, 0);
}

cow_ptr<Commit> Replay(Repository& repository, const Changes& changes, Way way,
                       std::uint32_t number) {
  cow_ptr<Commit> head;
  for (std::size_t c = 0; c < changes.plan.size(); ++c) {
    Commit commit(&repository, false);
    if (way == Way::kPerFile) {
      for (std::size_t i = 0; i < changes.plan[c].size(); ++i) {
        AddFile(commit, repository, changes.paths[c][i], changes.contents[c][i]);
      }
    } else {
      const cow_ptr<Tree> base = commit.GetTree()->GetRoot();
      commit.ReplaceRoot(&repository, Share(ChangeTogether(repository, *base, changes.plan[c],
                                                           changes.contents[c])));
    }
    head = Record(repository, commit, number + static_cast<std::uint32_t>(c));
  }
  return head;
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
