#include <kit/internal/edit_draft.h>
#include <talvcs/foundation/helpers.h>
#include <talvcs/repository/irepository.h>
#include <talvcs/storage/on_demand_storage.h>

#include <optional>
#include <utility>

// The directories that edits touch are opened once and changed in place, unstored. While a
// directory is open, the one above it still has its old state. At the end all that changed are
// stored and put into the one above, from the bottom up:
//
//     add a/b/f, add a/c/g, remove a/b/h      open a, a/b, a/c;   store a/b, a/c, a

namespace TalVcs::Kit {

namespace {

/// True if a tree has a blob of that name, given its subtree of that name. A blob has precedence
/// there, and none is read.
bool HasBlob(const Tree& tree, const TalStringT<WideChar>& name, const cow_ptr<Tree>& subtree) {
  const std::optional<Id> id = tree.GetIdByPath(name);
  return id && !(subtree && subtree->GetId() == *id);
}

}  // namespace

EditDraft::EditDraft(IRepository& repository, const Tree& root) : m_repository(repository) {
  m_directories.push_back({root, kNone, {}, {}, false, true, false});
}

bool EditDraft::Add(TalStringViewT<WideChar> path, const Blob& blob) {
  const auto [at, name] = OpenFor(path);
  if (at == kNone) return false;
  Directory& directory = m_directories[at];
  directory.changed = true;
  directory.tree.AddBlob(&m_repository, name, blob);
  if (!directory.below.empty()) Hide(directory, name);
  return true;
}

bool EditDraft::Add(TalStringViewT<WideChar> path, const Tree& tree) {
  const auto [at, name] = OpenFor(path);
  if (at == kNone) return false;
  Directory& directory = m_directories[at];
  directory.changed = true;
  Close(at, name);
  directory.tree.AddTree(&m_repository, name, tree);
  return true;
}

bool EditDraft::Copy(TalStringViewT<WideChar> path, const Tree& from) {
  const Components components = Helpers::SplitVcsPath(path);
  if (components.empty()) return false;
  cow_ptr<Tree> above;
  if (components.size() > 1) {
    above = from.GetDeepTree(array_view<const TalStringViewT<WideChar>>(
        components.data(), components.data() + components.size() - 1));
    if (!above) return false;
  }
  const Tree& holder = above ? *above : from;
  if (!holder.GetIdByPath(components.back())) return false;
  const auto [at, name] = OpenFor(path);
  if (at == kNone) return false;
  Directory& directory = m_directories[at];
  directory.changed = true;
  const auto type = OnDemandStorage::CopyEntry(holder, name, directory.tree);
  if (type == ObjectType::Tree) {
    Close(at, name);
  } else if (!directory.below.empty()) {
    Hide(directory, name);
  }
  return true;
}

bool EditDraft::Remove(TalStringViewT<WideChar> path) {
  ForgetLast();
  const Components components = Helpers::SplitVcsPath(path);
  std::size_t at = components.empty() ? kNone : OpenAbove(components, false);
  if (at == kNone || !Holds(at, components.back())) return false;
  for (TalStringViewT<WideChar> name = components.back();;) {
    Close(at, name);
    Directory& directory = m_directories[at];
    directory.tree.RemoveObject(&m_repository, name);
    directory.changed = true;
    if (at == 0 || !directory.tree.IsEmpty() || !directory.below.empty()) return true;
    // An emptied directory goes from the one above.
    name = directory.name;
    at = directory.above;
  }
}

Tree EditDraft::Finish() {
  // A directory comes after the one above it.
  for (std::size_t index = m_directories.size(); --index > 0;) {
    Directory& directory = m_directories[index];
    if (!directory.exists || !directory.changed) continue;
    Directory& above = m_directories[directory.above];
    above.tree.AddTree(&m_repository, directory.name, directory.tree);
    above.changed = true;
    directory.tree = Tree();
  }
  return std::move(m_directories.front().tree);
}

// Opens the directories above `path`. The target has kNone if one of them is hidden or the path is
// empty. Most edits are in the directory of the edit before, which then need not be looked for.
EditDraft::Target EditDraft::OpenFor(TalStringViewT<WideChar> path) {
  int name_start = path.length;
  while (name_start > 0 && path.text[name_start - 1] != TAL_WIDE('/')) --name_start;
  const TalStringViewT<WideChar> above = path.Mid(0, name_start);
  const TalStringViewT<WideChar> name = path.Mid(name_start, path.length);
  if (!name.IsEmpty() && m_lastAt != kNone && above == m_lastAbove) return {m_lastAt, name};
  const Components components = Helpers::SplitVcsPath(path);
  if (components.empty()) return {kNone, {}};
  const std::size_t at = OpenAbove(components, true);
  if (!name.IsEmpty()) {
    m_lastAt = at;
    m_lastAbove = above;
  }
  return {at, components.back()};
}

// Returns the open directory of that name, opening it if need be; kNone if it is hidden, or if
// there is none and `make` is false.
std::size_t EditDraft::Open(std::size_t above, TalStringViewT<WideChar> view, bool make) {
  const TalStringT<WideChar> name(view);
  const auto found = m_directories[above].below.find(name);
  if (found != m_directories[above].below.end()) {
    m_metHidden = m_metHidden || m_directories[found->second].hidden;
    return m_metHidden ? kNone : found->second;
  }
  const cow_ptr<Tree> held = m_directories[above].tree.GetLocalTree(name);
  m_metHidden = m_metHidden || HasBlob(m_directories[above].tree, name, held);
  if (m_metHidden || (!held && !make)) return kNone;
  const std::size_t index = m_directories.size();
  m_directories.push_back({held ? *held : Tree(), above, name, {}, !held, true, false});
  m_directories[above].below.emplace(name, index);
  return index;
}

std::size_t EditDraft::OpenAbove(const Components& path, bool make) {
  std::size_t at = 0;
  for (std::size_t level = 0; level + 1 < path.size() && at != kNone; ++level) {
    at = Open(at, path[level], make);
  }
  return at;
}

bool EditDraft::Holds(std::size_t at, TalStringViewT<WideChar> name) const {
  const Directory& directory = m_directories[at];
  return directory.tree.GetIdByPath(name) || directory.below.contains(name);
}

// Notes that a new blob hides the open directory of its name, if there is one.
void EditDraft::Hide(const Directory& above, TalStringViewT<WideChar> name) {
  const auto open = above.below.find(name);
  if (open == above.below.end()) return;
  m_directories[open->second].hidden = true;
  ForgetLast();
}

// Takes an open directory, if there is one, out of the draft with all below it.
void EditDraft::Close(std::size_t above, TalStringViewT<WideChar> name) {
  const auto found = m_directories[above].below.find(name);
  if (found == m_directories[above].below.end()) return;
  ForgetLast();
  std::vector<std::size_t> closing{found->second};
  m_directories[above].below.erase(found);
  while (!closing.empty()) {
    Directory& directory = m_directories[closing.back()];
    closing.pop_back();
    directory.exists = false;
    for (const auto& [below, index] : directory.below) closing.push_back(index);
    directory.below.clear();
    directory.tree = Tree();
  }
}

}  // namespace TalVcs::Kit
