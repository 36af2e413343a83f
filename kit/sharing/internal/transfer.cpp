#include <kit/sharing/internal/transfer.h>
#include <kit/store/head_table.h>

#include <algorithm>
#include <optional>
#include <utility>

namespace TalVcs::Kit {

namespace {

constexpr std::size_t kCommitsFetchedTogether = 1024;
// While the objects of some commits are uploaded, the trees of the next ones are read.
constexpr std::size_t kCommitsPushedTogether = 256;
constexpr std::size_t kTreesTogether = 4096;
constexpr std::size_t kFilesTogether = 2048;
constexpr std::size_t kIdsTogether = 16384;

/// Returns a delegate with the arguments `Args` that calls `callable`, which must outlive it.
template <class... Args, class Callable>
Delegate<void(Args...)> DelegateTo(Callable& callable) {
  return {&callable, [](void* object, Args... args) {
            (*static_cast<Callable*>(object))(std::forward<Args>(args)...);
          }};
}

/// Calls `visit` with each reference of a packed tree or commit.
template <class Visit>
void ForEachReference(const Buffer& packed, Visit visit) {
  VisitReferences(packed, DelegateTo<const PackedReference&>(visit));
}

/// Calls `act` with the ids of the entries, not more than `most` at once.
template <class Entries, class Act>
Status InBatches(const Entries& entries, std::size_t most, Act act) {
  Status status;
  for (std::size_t first = 0; status && first < entries.size(); first += most) {
    std::vector<Id> ids;
    const std::size_t last = std::min(entries.size(), first + most);
    for (std::size_t index = first; index < last; ++index) ids.push_back(entries[index].id);
    status = act(first, ids);
  }
  return status;
}

}  // namespace

Status Transfer::Run(std::span<const Id> heads, std::span<const Id> known, const Id& guarded) {
  Status status = m_history.Read(heads, known);
  if (status) status = m_reporter.Begin("contents");
  const std::span<const CommitRecord> commits = m_history.Commits();
  for (const Id& id : m_history.KnownEnds()) {
    if (!(id == guarded)) m_unproven.push_back({id, ObjectType::Commit});
  }
  std::vector<Entry> none;
  if (status && commits.empty()) status = KeepMissing(none);
  const std::size_t most =
      m_far == FarStore::Source ? kCommitsFetchedTogether : kCommitsPushedTogether;
  for (std::size_t first = 0; status && first < commits.size(); first += most) {
    status = CopyCommits(commits.subspan(first, std::min(most, commits.size() - first)));
  }
  if (status) status = m_writer.Flush();
  return status ? m_reporter.End() : status;
}

Status Transfer::CopyCommits(std::span<const CommitRecord> commits) {
  const std::vector<Entry> roots = RootsOf(commits);
  const Result<std::vector<Entry>> files = FilesOf(roots);
  if (!files) return files.error();
  Status status = CopyFiles(*files);
  for (const Entry& root : roots) {
    if (status) status = WriteTree(root.id);
  }
  for (const CommitRecord& commit : commits) {
    if (status) status = m_writer.Add({commit.id, commit.packed, commit.parent});
  }
  m_trees.clear();
  m_unreadable.clear();
  m_previous.clear();
  return status;
}

/// Reads the trees below `level` that the target lacks, and returns the files that it lacks.
Result<std::vector<Transfer::Entry>> Transfer::FilesOf(std::vector<Entry> level) {
  std::vector<Entry> found;
  Status status = KeepMissingOfLevel(level);
  while (status && !level.empty()) {
    found.insert(found.end(), level.begin(), level.end());
    std::erase_if(level, [](const Entry& entry) { return entry.type != ObjectType::Tree; });
    status = ReadTrees(level);
    if (status) status = ReadPrevious(level);
    if (!status) break;
    Result<std::vector<Entry>> below = EntriesBelow(level);
    if (!below) return below;
    level = *std::move(below);
    status = KeepMissingOfLevel(level);
  }
  if (status) status = KeepMissingOfAll(found);
  if (!status) return status.error();
  std::erase_if(found, [](const Entry& entry) { return entry.type == ObjectType::Tree; });
  return found;
}

/// Returns the root trees that were not met before, each with the root of the parent.
std::vector<Transfer::Entry> Transfer::RootsOf(std::span<const CommitRecord> commits) {
  std::vector<Id> outside;
  IdMap asked;
  for (const CommitRecord& commit : commits) m_roots.emplace(commit.id, commit.root);
  for (const CommitRecord& commit : commits) {
    if (commit.parent.View().IsEmpty() || m_roots.contains(commit.parent)) continue;
    if (asked.Insert(*KeyOf(commit.parent), 0).second) outside.push_back(commit.parent);
  }
  if (!outside.empty()) {
    // What can't be read costs a hint, and nothing else.
    const Status status = m_near.Read(outside, [this](const Id& id, Result<Buffer> packed) {
      if (!packed || GetPackedType(*packed) != ObjectType::Commit) return;
      ForEachReference(*packed, [&](const PackedReference& reference) {
        if (reference.type == ObjectType::Tree) m_roots.emplace(id, reference.id);
      });
    });
    static_cast<void>(status);
  }
  std::vector<Entry> roots;
  for (const CommitRecord& commit : commits) {
    if (commit.root.View().IsEmpty()) continue;
    if (!m_met.Insert(*KeyOf(commit.root), static_cast<std::uint32_t>(ObjectType::Tree)).second) {
      continue;
    }
    const auto parent = m_roots.find(commit.parent);
    roots.push_back(
        {commit.root, ObjectType::Tree, parent == m_roots.end() ? Id() : parent->second});
  }
  return roots;
}

/// A near target is asked at each level, so that nothing is read that it has.
Status Transfer::KeepMissingOfLevel(std::vector<Entry>& level) {
  return m_far == FarStore::Source ? KeepMissing(level) : Status();
}

/// A far target is asked once. A tree that it has doesn't matter, even if it can't be read here.
Status Transfer::KeepMissingOfAll(std::vector<Entry>& found) {
  if (m_far == FarStore::Source) return {};
  Status status = KeepMissing(found);
  if (!status) return status;
  std::unordered_map<Id, HeldTree> missing;
  for (const Entry& entry : found) {
    if (entry.type != ObjectType::Tree) continue;
    auto tree = m_trees.extract(entry.id);
    if (tree.empty()) return UnreadableObject(entry.id, m_unreadable.at(entry.id));
    missing.insert(std::move(tree));
  }
  m_trees.swap(missing);
  return status;
}

/// Takes out what the target has. The first call looks for the known commits as well.
Status Transfer::KeepMissing(std::vector<Entry>& entries) {
  IdMap missing;
  const std::size_t count = entries.size();
  entries.insert(entries.end(), m_unproven.begin(), m_unproven.end());
  Status status = FindMissing(entries, missing);
  entries.resize(count);
  if (!status) return status;
  for (const Entry& entry : std::exchange(m_unproven, {})) {
    if (missing.Contains(*KeyOf(entry.id))) return ObjectsWereRemoved();
  }
  std::erase_if(entries, [&](const Entry& entry) { return !missing.Contains(*KeyOf(entry.id)); });
  return status;
}

Status Transfer::FindMissing(std::span<const Entry> entries, IdMap& missing) {
  return InBatches(entries, kIdsTogether, [&](std::size_t, const std::vector<Id>& ids) -> Status {
    const Result<std::vector<Id>> result = m_to.Missing(ids);
    if (!result) return result.error();
    for (const Id& id : *result) missing.Insert(*KeyOf(id), 0);
    return m_reporter.Add(0);
  });
}

Status Transfer::ReadTrees(const std::vector<Entry>& level) {
  return InBatches(level, kTreesTogether, [&](std::size_t first, const std::vector<Id>& ids) {
    return ReadEach(m_from, ids, [&](std::size_t index, Result<Buffer> packed) -> Status {
      const auto problem = CheckRecord(ids[index], ObjectType::Tree, packed);
      if (problem && m_far == FarStore::Source) return UnreadableObject(ids[index], *problem);
      if (problem) {
        m_unreadable.emplace(ids[index], *problem);
        return m_reporter.Add(0);
      }
      m_trees.emplace(ids[index], HeldTree{*std::move(packed), level[first + index].previous});
      return m_reporter.Add(0);
    });
  });
}

/// Reads the previous versions of the trees, as far as the near store has them.
Status Transfer::ReadPrevious(const std::vector<Entry>& level) {
  std::vector<Entry> wanted;
  for (const Entry& entry : level) {
    if (entry.previous.View().IsEmpty() || m_trees.contains(entry.previous)) continue;
    if (m_previous.emplace(entry.previous, Buffer()).second) wanted.push_back({entry.previous});
  }
  return InBatches(wanted, kTreesTogether, [&](std::size_t, const std::vector<Id>& ids) {
    const Status status = m_near.Read(ids, [this](const Id& id, Result<Buffer> packed) {
      if (packed && GetPackedType(*packed) == ObjectType::Tree) m_previous[id] = *packed;
    });
    static_cast<void>(status);
    return m_reporter.Add(0);
  });
}

/// Returns the entries of the trees that were not met before.
Result<std::vector<Transfer::Entry>> Transfer::EntriesBelow(const std::vector<Entry>& level) {
  std::vector<Entry> below;
  for (const Entry& tree : level) {
    const auto held = m_trees.find(tree.id);
    if (held == m_trees.end()) continue;  // it can't be read
    const Status status = AddChanges(held->second, below);
    if (!status) return status.error();
  }
  return below;
}

/// Returns the previous version of a tree, if it is here: a tree that is copied too, or one that
/// the target has. All that it names is copied with it or is in the target.
const Buffer* Transfer::PreviousOf(const HeldTree& tree) const {
  const auto held = m_trees.find(tree.previous);
  if (held != m_trees.end()) return &held->second.packed;
  const auto read = m_previous.find(tree.previous);
  return read == m_previous.end() ? nullptr : &read->second;
}

/// Appends the entries of a tree that its previous version doesn't have and that were not met
/// before, each with the id that the previous version has under its name.
Status Transfer::AddChanges(const HeldTree& tree, std::vector<Entry>& entries) {
  Status status;
  auto add = [&](const PackedReference& reference, const Id& previous) {
    const auto type = static_cast<std::uint32_t>(reference.type);
    const auto [met, is_new] = m_met.Insert(*KeyOf(reference.id), type);
    if (*met != type) {
      status = UnreadableObject(
          reference.id, {ErrorCode::Damaged, "one tree names it as a file, another as a folder"});
    }
    if (is_new) entries.push_back({reference.id, reference.type, previous});
  };
  const Buffer* const previous = PreviousOf(tree);
  const bool is_compared =
      previous != nullptr &&
      VisitChangedReferences(tree.packed, *previous,
                             DelegateTo<const PackedReference&, const Id&>(add));
  if (!is_compared) {
    ForEachReference(tree.packed, [&](const PackedReference& reference) { add(reference, Id()); });
  }
  return status;
}

Status Transfer::CopyFiles(const std::vector<Entry>& files) {
  return InBatches(files, kFilesTogether, [&](std::size_t first, const std::vector<Id>& ids) {
    return ReadEach(m_from, ids, [&](std::size_t index, Result<Buffer> packed) -> Status {
      const auto problem = CheckRecord(ids[index], ObjectType::Blob, packed);
      if (problem) return UnreadableObject(ids[index], *problem);
      return m_writer.Add({ids[index], *std::move(packed), files[first + index].previous});
    });
  });
}

/// Writes the trees that are held below a root, each after its subtrees, and lets go of them.
Status Transfer::WriteTree(const Id& root) {
  struct Frame {
    Id id;
    std::vector<Id> subtrees;
  };
  Status status;
  std::vector<Frame> frames;
  if (m_trees.contains(root)) frames.push_back({root, HeldSubtrees(root)});
  while (status && !frames.empty()) {
    Frame& frame = frames.back();
    if (frame.subtrees.empty()) {
      const auto tree = m_trees.extract(frame.id);
      frames.pop_back();
      status = m_writer.Add({tree.key(), tree.mapped().packed, tree.mapped().previous});
      continue;
    }
    const Id next = std::move(frame.subtrees.back());
    frame.subtrees.pop_back();
    if (m_trees.contains(next)) frames.push_back({next, HeldSubtrees(next)});
  }
  return status;
}

std::vector<Id> Transfer::HeldSubtrees(const Id& tree) const {
  std::vector<Id> subtrees;
  auto add = [&](const PackedReference& reference) {
    if (m_trees.contains(reference.id)) subtrees.push_back(reference.id);
  };
  VisitSubtrees(m_trees.at(tree).packed, DelegateTo<const PackedReference&>(add));
  return subtrees;
}

}  // namespace TalVcs::Kit
