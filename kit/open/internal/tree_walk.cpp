#include <kit/open/internal/errors.h>
#include <kit/open/internal/tree_walk.h>

#include <algorithm>
#include <unordered_map>
#include <utility>

namespace TalVcs::Kit {

namespace {

// Trees are held until their turn comes, files aren't.
constexpr std::size_t kTreesTogether = 64;
constexpr std::size_t kFilesTogether = 256;

template <class Entry>
std::vector<Id> IdsOf(const std::vector<Entry>& entries, std::size_t first, std::size_t last) {
  std::vector<Id> ids;
  ids.reserve(last - first);
  for (std::size_t index = first; index < last; ++index) ids.push_back(entries[index].id);
  return ids;
}

}  // namespace

Status TreeWalk::Walk(std::vector<Root> roots, const std::string& branch) {
  m_roots = std::move(roots);
  m_branch = &branch;
  m_frames.clear();
  m_frames.emplace_back();
  // The entries keep the positions of the roots, so what isn't wanted is marked and not erased.
  std::vector<Entry> wanted;
  for (const Root& root : m_roots) {
    m_frames.back().trees.push_back({root.id, {}, root.previous});
    if (!m_trees.Contains(*KeyOf(root.id))) wanted.push_back({root.id, {}});
  }
  std::vector<Entry> none;
  Status status = KeepWanted(wanted, none);
  while (status && !m_frames.empty()) status = Step();
  return status;
}

Status TreeWalk::Step() {
  Frame& frame = m_frames.back();
  if (frame.next == frame.trees.size()) return Finish();
  const std::uint32_t* known = m_trees.Find(*KeyOf(frame.trees[frame.next].id));
  if (known != nullptr) {
    AddDamage(frame, *known);
    ++frame.next;
    return {};
  }
  while (frame.nextFetched < frame.fetched.size() &&
         frame.fetched[frame.nextFetched].position < frame.next) {
    ++frame.nextFetched;
  }
  if (frame.nextFetched == frame.fetched.size()) {
    Status status = Fetch(frame);
    if (!status) return status;
  }
  Fetched fetched = std::move(frame.fetched[frame.nextFetched++]);
  Entry entry = frame.trees[frame.next++];
  if (!fetched.problem) {
    NoteReplaced(entry, ObjectType::Tree);
    return Open(std::move(entry), std::move(fetched.packed));
  }
  const std::uint32_t set =
      m_damages.Add(DamageAt(entry, ObjectType::Tree, *std::move(fetched.problem)));
  m_trees.Insert(*KeyOf(entry.id), set);
  AddDamage(frame, set);
  return {};
}

// Reads the next subtrees of the frame that aren't known yet, the one at `next` first.
Status TreeWalk::Fetch(Frame& frame) {
  frame.fetched.clear();
  frame.nextFetched = 0;
  std::vector<Id> ids;
  IdMap asked;
  for (std::size_t at = frame.next; at < frame.trees.size() && ids.size() < kTreesTogether; ++at) {
    const ObjectKey key = *KeyOf(frame.trees[at].id);
    if (m_trees.Contains(key) || !asked.Insert(key, 0).second) continue;
    ids.push_back(frame.trees[at].id);
    frame.fetched.emplace_back().position = at;
  }
  return ReadEach(m_store, ids, [&](std::size_t index, Result<Buffer> packed) -> Status {
    Fetched& fetched = frame.fetched[index];
    fetched.problem = CheckRecord(ids[index], ObjectType::Tree, packed);
    const std::uint64_t size_bytes = packed ? packed->GetSize() : 0;
    if (!fetched.problem) fetched.packed = *std::move(packed);
    return m_reporter.Add(1, size_bytes);
  });
}

// Enters a tree: reads its files at once, and leaves its subtrees to the next steps.
Status TreeWalk::Open(Entry entry, Buffer packed) {
  Frame frame;
  frame.self = std::move(entry);
  frame.packed = std::move(packed);
  std::vector<Entry> files;
  auto visit = [&](const PackedReference& reference) {
    const ObjectKey key = *KeyOf(reference.id);
    if (reference.type == ObjectType::Tree) {
      const std::uint32_t* known = m_trees.Find(key);
      if (known != nullptr) {
        AddDamage(frame, *known);
      } else {
        frame.trees.push_back({reference.id, reference.name});
      }
      return;
    }
    const auto [set, added] = m_files.Insert(key, NumberSets::kEmpty);
    if (added) {
      files.push_back({reference.id, reference.name});
    } else {
      AddDamage(frame, *set);
    }
  };
  using Visit = decltype(visit);
  VisitReferences(frame.packed, {&visit, [](void* object, const PackedReference& reference) {
                                   (*static_cast<Visit*>(object))(reference);
                                 }});
  m_frames.push_back(std::move(frame));
  Frame& opened = m_frames.back();
  Status status = KeepWanted(opened.trees, files);
  if (!status) return status;
  if (m_hooks.findsPrevious) FindPrevious(opened, files);
  return m_hooks.readsFiles ? ReadFiles(opened, files) : LookForFiles(opened, files);
}

// Notes for each entry that is new the id under its name in the previous version of the tree.
void TreeWalk::FindPrevious(Frame& frame, std::vector<Entry>& files) {
  if (const Buffer* previous = m_recentTrees.Find(frame.self.previous)) {
    std::unordered_map<TalStringT<WideChar>, Entry*> entries;
    for (Entry& file : files) entries.emplace(file.name, &file);
    for (Entry& tree : frame.trees) entries.emplace(tree.name, &tree);
    auto visit = [&entries](const PackedReference& reference) {
      const auto found = entries.find(reference.name);
      if (found != entries.end()) found->second->previous = reference.id;
    };
    using Visit = decltype(visit);
    if (!entries.empty()) {
      VisitReferences(*previous, {&visit, [](void* object, const PackedReference& reference) {
                                    (*static_cast<Visit*>(object))(reference);
                                  }});
    }
  }
  m_recentTrees.Put(frame.self.id, frame.packed, frame.packed.GetSize());
}

// Takes out of the lists what need not be looked at, and marks it as whole.
Status TreeWalk::KeepWanted(std::vector<Entry>& trees, std::vector<Entry>& files) {
  if (!m_hooks.wanted) return {};
  std::vector<Id> ids = IdsOf(files, 0, files.size());
  for (const Entry& tree : trees) {
    if (!m_trees.Contains(*KeyOf(tree.id))) ids.push_back(tree.id);
  }
  if (ids.empty()) return {};
  const Result<std::vector<Id>> result = m_hooks.wanted(ids);
  if (!result) return result.error();
  IdMap wanted;
  for (const Id& id : *result) wanted.Insert(*KeyOf(id), 0);
  std::erase_if(files, [&](const Entry& file) { return !wanted.Contains(*KeyOf(file.id)); });
  std::erase_if(trees, [&](const Entry& tree) {
    const ObjectKey key = *KeyOf(tree.id);
    // One that is known already keeps its damage.
    return !wanted.Contains(key) && m_trees.Insert(key, NumberSets::kEmpty).second;
  });
  return {};
}

Status TreeWalk::ReadFiles(Frame& frame, const std::vector<Entry>& files) {
  for (std::size_t first = 0; first < files.size(); first += kFilesTogether) {
    const std::vector<Id> ids = IdsOf(files, first, std::min(first + kFilesTogether, files.size()));
    Status status = ReadEach(m_store, ids, [&](std::size_t index, Result<Buffer> packed) -> Status {
      const std::uint64_t size_bytes = packed ? packed->GetSize() : 0;
      std::optional<ReadProblem> problem = CheckRecord(ids[index], ObjectType::Blob, packed);
      if (problem) {
        AddFileDamage(frame, files[first + index], *std::move(problem));
        return m_reporter.Add(1, size_bytes);
      }
      NoteReplaced(files[first + index], ObjectType::Blob);
      if (m_hooks.objectRead) {
        Status taken = m_hooks.objectRead(
            {ids[index], *std::move(packed), files[first + index].previous}, true);
        if (!taken) return taken;
      }
      return m_reporter.Add(1, size_bytes);
    });
    if (!status) return status;
  }
  return {};
}

Status TreeWalk::LookForFiles(Frame& frame, const std::vector<Entry>& files) {
  if (files.empty()) return {};
  const std::vector<Id> ids = IdsOf(files, 0, files.size());
  const Result<std::vector<Id>> missing = m_store.Missing(ids);
  if (!missing) return missing.error();
  IdMap lost;
  for (const Id& id : *missing) lost.Insert(*KeyOf(id), 0);
  for (const Entry& file : files) {
    if (lost.Contains(*KeyOf(file.id))) AddFileDamage(frame, file, MissingObject());
  }
  return m_reporter.Add(files.size());
}

Status TreeWalk::Finish() {
  Frame frame = std::move(m_frames.back());
  m_frames.pop_back();
  if (m_frames.empty()) return {};
  const std::uint32_t set = m_damages.Sets().Make(std::move(frame.damage));
  m_trees.Insert(*KeyOf(frame.self.id), set);
  AddDamage(m_frames.back(), set);
  if (!m_hooks.objectRead) return {};
  return m_hooks.objectRead(
      {frame.self.id, std::move(frame.packed), std::move(frame.self.previous)},
      set == NumberSets::kEmpty);
}

void TreeWalk::AddFileDamage(Frame& frame, const Entry& file, ReadProblem problem) {
  const std::uint32_t set = m_damages.Add(DamageAt(file, ObjectType::Blob, std::move(problem)));
  *m_files.Find(*KeyOf(file.id)) = set;
  AddDamage(frame, set);
}

void TreeWalk::AddDamage(Frame& frame, std::uint32_t set) {
  m_damages.Sets().ForEachNumber(
      set, [&frame](std::uint32_t number) { frame.damage.push_back(number); });
  // Many subtrees may lack the same objects.
  if (frame.damage.size() < std::size_t{4} * m_damages.GetMost()) return;
  std::sort(frame.damage.begin(), frame.damage.end());
  frame.damage.erase(std::unique(frame.damage.begin(), frame.damage.end()), frame.damage.end());
}

void TreeWalk::NoteReplaced(const Entry& entry, ObjectType type) const {
  if (!m_hooks.replaced) return;
  std::optional<ReadProblem> problem = m_hooks.replaced(entry.id);
  if (problem) m_hooks.replacedAt(DamageAt(entry, type, *std::move(problem)));
}

// Describes a damaged entry of the tree that is open.
Damage TreeWalk::DamageAt(const Entry& entry, ObjectType type, ReadProblem problem) const {
  Damage damage;
  damage.id = entry.id;
  damage.type = type;
  damage.code = problem.code;
  damage.reason = std::move(problem.reason);
  damage.branch = *m_branch;
  damage.commit = m_roots[m_frames.front().next - 1].commit;
  for (std::size_t level = 2; level < m_frames.size(); ++level) {
    damage.path += ToUtf8(m_frames[level].self.name) + '/';
  }
  damage.path += ToUtf8(entry.name);
  return damage;
}

}  // namespace TalVcs::Kit
