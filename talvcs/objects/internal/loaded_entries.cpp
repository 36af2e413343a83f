#include <talvcs/objects/internal/loaded_entries.h>

#include <talvcs/objects/internal/tree_access.h>
#include <talvcs/repository/irepository.h>

#include <optional>
#include <utility>

namespace TalVcs {

// Most directories of a history are the previous version with one entry changed. Where the list
// goes on with the bytes of a chunk of that version, or of a record, the entries need no look-up.
int LoadedEntries::TakePrevious(TalStringViewT<char> list) {
  if (!m_builder) return 0;
  m_previous.SkipThrough(m_lastName);
  int taken = 0;
  while (!m_previous.AtEnd()) {
    const TalStringViewT<char> rest(list.text + taken, list.length - taken);
    if (EntryChunk* chunk = m_previous.ChunkThatBegins(rest)) {
      m_builder->Append(*chunk);
      m_lastName = chunk->Name(chunk->Count() - 1);
      taken += static_cast<int>(chunk->Records().size());
      m_previous.SkipChunk();
    } else if (const std::optional<EntryChunk::Slot> slot = m_previous.EntryThatBegins(rest)) {
      m_builder->Append(slot->name, slot->kind, *slot->child);
      m_lastName = slot->name;
      taken += slot->record.length;
      m_previous.SkipEntry();
    } else {
      break;
    }
  }
  return taken;
}

void LoadedEntries::Add(IRepository& repository, const TalStringT<WideChar>& name,
                        const cow_ptr<Blob>& blob, const cow_ptr<Tree>& subtree) {
  const bool ascends =
      !name.IsEmpty() && name.Find(TAL_WIDE("/")) < 0 && name.Compare(m_lastName) > 0;
  if (m_builder && ascends) {
    if (blob) {
      m_builder->Append(name, EntryKind::Blob, blob);
    } else {
      m_builder->Append(name, EntryKind::Tree, subtree);
    }
    m_lastName = name;
    return;
  }
  EndBuilding();
  if (blob) {
    m_tree.write()->AddBlob(&repository, name, *blob);
  } else {
    m_tree.write()->AddTree(&repository, name, *subtree);
  }
}

const Tree& LoadedEntries::Current() {
  EndBuilding();
  return *m_tree.write();
}

cow_ptr<Tree> LoadedEntries::Finish() {
  EndBuilding();
  return std::move(m_tree);
}

void LoadedEntries::EndBuilding() {
  if (!m_builder) return;
  TreeAccess::AdoptEntries(*m_tree.write(), *m_builder, m_previous.List());
  m_builder.reset();
}

}  // namespace TalVcs
