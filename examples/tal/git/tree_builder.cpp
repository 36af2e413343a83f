#include "tree_builder.h"

namespace Tal {

namespace {

/// True for the path itself and everything below it.
bool IsAtOrBelow(const std::string& path, const std::string& top) {
  return path.starts_with(top) && (path.size() == top.size() || path[top.size()] == '/');
}

}  // namespace

TreeBuilder::TreeBuilder(TalVcs::Repository& repository, TalVcs::cow_ptr<TalVcs::Tree> tree)
    : m_repository(repository) {
  if (!tree) return;
  m_tree = *tree;
  if (const auto kinds = m_tree.GetLocalBlob(ToWide(FileKinds::kKindsName))) {
    m_kindsText = TalVcs::Kit::BytesFromBlob(*kinds);
    m_kinds = FileKinds(m_kindsText);
  }
}

void TreeBuilder::Put(const std::string& path, const TalVcs::Blob& blob, FileKind kind) {
  MakeRoom(path);
  m_replaced.erase(path);
  m_edits.AddBlob(ToWide(path), blob);
  m_added.insert(path);
  m_kinds.Set(path, kind);
}

void TreeBuilder::Remove(const std::string& path) {
  if (m_replaced.erase(path) == 0) RemoveAll(path);
}

void TreeBuilder::RemoveAll(const std::string& path) {
  m_edits.RemoveObject(ToWide(path));
  m_added.erase(path);
  const std::string folder = path + '/';
  for (auto at = m_added.lower_bound(folder); at != m_added.end() && at->starts_with(folder);) {
    at = m_added.erase(at);
  }
  RemoveKinds(path);
}

bool TreeBuilder::Copy(const std::string& from, const std::string& to) {
  if (const auto replaced = m_replaced.find(from); replaced != m_replaced.end()) {
    const ReplacedFile file = replaced->second;
    Put(to, file.blob, file.kind);
    return true;
  }
  Flush();
  if (const auto blob = m_tree.GetDeepBlob(ToWide(from))) {
    Put(to, *blob, m_kinds.Of(from));
    return true;
  }
  const auto folder = m_tree.GetDeepTree(ToWide(from));
  if (!folder) return false;
  MakeRoom(to);
  Flush();
  m_tree.AddTree(&m_repository, ToWide(to), *folder);
  RemoveKinds(to);
  const FileKinds before = m_kinds;
  for (const auto& [path, kind] : before.GetAll()) {
    if (IsAtOrBelow(path, from)) m_kinds.Set(to + path.substr(from.size()), kind);
  }
  return true;
}

void TreeBuilder::Clear() {
  m_tree = TalVcs::Tree();
  m_edits.Clear();
  m_added.clear();
  m_replaced.clear();
  m_kinds = FileKinds();
  m_kindsText.clear();
}

TalVcs::cow_ptr<TalVcs::Tree> TreeBuilder::Finish() {
  PutKinds();
  Flush();
  return m_repository.SyncWithStorage(TalVcs::cow_ptr<TalVcs::Tree>(
      TalVcs::dll_wrapped_shared(std::make_unique<TalVcs::Tree>(m_tree))));
}

void TreeBuilder::RemoveKinds(const std::string& path) {
  const FileKinds before = m_kinds;
  for (const auto& [file, kind] : before.GetAll()) {
    if (IsAtOrBelow(file, path)) m_kinds.Set(file, FileKind::File);
  }
}

void TreeBuilder::PutKinds() {
  const std::string text = m_kinds.ToText();
  if (text == m_kindsText) return;
  if (text.empty()) {
    m_edits.RemoveObject(ToWide(FileKinds::kKindsName));
  } else {
    m_edits.AddBlob(ToWide(FileKinds::kKindsName), TalVcs::Kit::BlobFromBytes(text));
  }
  m_kindsText = text;
}

/// Removes the folder at the path, and the file through which it leads.
void TreeBuilder::MakeRoom(const std::string& path) {
  if (IsFolder(path)) RemoveAll(path);
  for (std::size_t end = path.find('/'); end != path.npos; end = path.find('/', end + 1)) {
    const std::string folder = path.substr(0, end);
    if (!IsFile(folder)) continue;
    const bool is_added = m_added.contains(folder);
    Flush();  // an edit before may have removed it
    const auto blob = m_tree.GetDeepBlob(ToWide(folder));
    if (!blob) continue;
    if (!is_added) m_replaced.insert_or_assign(folder, ReplacedFile{*blob, m_kinds.Of(folder)});
    RemoveAll(folder);
  }
}

bool TreeBuilder::HasFile(const std::string& path) const {
  return m_replaced.contains(path) || IsFile(path);
}

bool TreeBuilder::IsFile(const std::string& path) const {
  return m_added.contains(path) || m_tree.GetDeepBlob(ToWide(path));
}

bool TreeBuilder::IsFolder(const std::string& path) const {
  const std::string folder = path + '/';
  const auto added = m_added.lower_bound(folder);
  return (added != m_added.end() && added->starts_with(folder)) || m_tree.GetDeepTree(ToWide(path));
}

void TreeBuilder::Flush() {
  m_edits.ApplyTo(&m_repository, m_tree);
  m_edits.Clear();
  m_added.clear();
}

}  // namespace Tal
