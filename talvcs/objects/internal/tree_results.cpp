#include <talvcs/objects/internal/tree_results.h>

#include <utility>

namespace TalVcs {

TreeResults::Result* TreeResults::Find(const Id& id) {
  const auto found = m_results.find(id);
  return found == m_results.end() ? nullptr : &found->second;
}

StreamText TreeResults::Begin(const Id& id) {
  Result& result = m_results[id];
  StreamText text = std::move(result.text);
  result = Result();
  return text;
}

void TreeResults::AddLack(const Id& id, EntryKind kind, const Id& lacked) {
  Dependents(kind)[lacked].push_back(id);
  m_results[id].lacksObjects = true;
  const Result* const subtree = kind == EntryKind::Tree ? Find(lacked) : nullptr;
  if (subtree != nullptr && subtree->isOutdated) Outdate({id});
}

// The result may be outdated by now, by an object that came with a later entry.
void TreeResults::Finish(const Id& id, cow_ptr<Tree> tree, const StreamText& text) {
  Result& result = m_results[id];
  result.tree = std::move(tree);
  if (result.lacksObjects) result.text = text;
}

void TreeResults::NoteStored(EntryKind kind, const Id& id) {
  auto stored = Dependents(kind).extract(id);
  if (!stored.empty()) Outdate(std::move(stored.mapped()));
}

void TreeResults::Outdate(Ids trees) {
  while (!trees.empty()) {
    const Id tree = std::move(trees.back());
    trees.pop_back();
    Result* const result = Find(tree);
    if (result == nullptr || result->isOutdated) continue;
    result->isOutdated = true;
    auto above = m_dependentsOfTrees.extract(tree);
    if (above.empty()) continue;
    trees.insert(trees.end(), above.mapped().begin(), above.mapped().end());
  }
}

const IdMap<TreeResults::Ids>& TreeResults::Dependents(EntryKind kind) const {
  return kind == EntryKind::Blob ? m_dependentsOfBlobs : m_dependentsOfTrees;
}

IdMap<TreeResults::Ids>& TreeResults::Dependents(EntryKind kind) {
  return kind == EntryKind::Blob ? m_dependentsOfBlobs : m_dependentsOfTrees;
}

}  // namespace TalVcs
