#include <talvcs/objects/internal/commit_access.h>
#include <talvcs/objects/internal/tree_access.h>
#include <talvcs/storage/internal/unsaved_walk.h>

#include <utility>

namespace TalVcs {

void UnsavedWalk::Visit(const cow_ptr<Commit>& head) {
  Push(head);
  while (!m_tasks.empty()) {
    if (m_tasks.back().isOpen) {
      m_found.push_back(std::move(m_tasks.back().object));
      m_tasks.pop_back();
      continue;
    }
    m_tasks.back().isOpen = true;
    const Object object = m_tasks.back().object;
    std::visit([this](const auto& handle) { PushNamed(*handle); }, object);
  }
}

template <class T>
void UnsavedWalk::Push(const cow_ptr<T>& object) {
  if (!object || m_source.Has(*object) || !m_visited.insert(object->GetId()).second) return;
  m_tasks.push_back({object, false});
}

void UnsavedWalk::PushNamed(const Commit& commit) {
  if (CommitAccess::SourceOfRoot(commit) != &m_source) {
    const cow_ptr<CommitTree> handle = commit.GetTree();
    if (handle) Push(handle->GetRoot());
  }
  // The parent comes last, so that it is written first.
  if (CommitAccess::SourceOfParent(commit) != &m_source) Push(CommitAccess::Parent(commit));
}

// What a blob hides isn't part of the stored form.
void UnsavedWalk::PushNamed(const Tree& tree) {
  const TreeEntries* list = TreeAccess::Entries(tree);
  if (list == nullptr) return;
  for (const EntryChunk* chunk : list->Chunks()) {
    for (std::size_t index = 0; index < chunk->Count(); ++index) {
      const EntryChunk::Slot slot = chunk->At(index);
      if (slot.record.length == 0) continue;
      const EntryRef entry(list, chunk, index);
      if (entry.IsAbsent() && list->Source() == &m_source) continue;
      if (slot.kind == EntryKind::Tree) {
        Push(entry.Open().as<Tree>());
      } else {
        Push(entry.Open().as<Blob>());
      }
    }
  }
}

}  // namespace TalVcs
