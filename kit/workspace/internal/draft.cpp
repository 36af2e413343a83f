#include <kit/batch_edit.h>
#include <kit/open/try.h>
#include <kit/text.h>
#include <kit/workspace/internal/checked_text.h>
#include <kit/workspace/internal/draft.h>
#include <kit/workspace/snapshot.h>
#include <talvcs/repository/irepository.h>

#include <utility>

namespace TalVcs::Kit {

namespace {

Error NothingAt(std::string_view path) {
  return WorkspaceError(ErrorCode::NotFound,
                        "there is no file or folder \"" + std::string(path) + "\"", path);
}

Error InTheWay(std::string_view path, std::string_view reason) {
  return WorkspaceError(
      ErrorCode::BadName,
      "cannot put a file at \"" + std::string(path) + "\": " + std::string(reason), path);
}

Error CannotMove(std::string_view from, std::string_view to, std::string_view reason) {
  return WorkspaceError(ErrorCode::BadName,
                        "cannot move \"" + std::string(from) + "\" to \"" + std::string(to) +
                            "\": " + std::string(reason),
                        to);
}

void AddTo(BatchEdit& edit, const WideString& path, const cow_ptr<Object>& object) {
  if (object->GetHeader() == "blob") {
    edit.AddBlob(path, static_cast<const Blob&>(*object));
  } else {
    edit.AddTree(path, static_cast<const Tree&>(*object));
  }
}

}  // namespace

Draft::Draft(IRepository& repository, cow_ptr<Tree> tree)
    : m_repository(&repository), m_tree(tree ? std::move(tree) : EmptyTree()) {}

const cow_ptr<Tree>& Draft::GetTree() {
  Flush();
  return m_tree;
}

void Draft::Flush() {
  if (m_files.empty()) return;
  BatchEdit edit;
  for (const auto& [path, file] : m_files) {
    if (file.blob) {
      edit.AddBlob(file.path, *file.blob);
    } else {
      edit.RemoveObject(file.path);
    }
  }
  Tree tree(*m_tree);
  edit.ApplyTo(m_repository, tree);
  m_tree = m_repository->SyncWithStorage(HandleOn(tree));
  m_files.clear();
}

Result<Bytes> Draft::Read(std::string_view path) {
  const auto found = m_files.find(path);
  if (found == m_files.end()) return Snapshot(m_tree).Read(path);
  if (found->second.blob) return Bytes(found->second.blob->GetData());
  return Snapshot().Read(path);
}

Status Draft::Write(std::string_view path, const Buffer& content) {
  return Try([&]() -> Status {
    Result<WideString> wide = CheckedPath(path);
    if (!wide) return wide.error();
    std::string name(path);
    Status status = CheckPlace(name, false);
    if (!status) return status;
    m_files.insert_or_assign(std::move(name), File{*std::move(wide), Blob(content)});
    return {};
  });
}

Status Draft::Remove(std::string_view path) {
  return Try([&]() -> Status {
    Result<WideString> wide = CheckedPath(path);
    if (!wide) return wide.error();
    const auto found = m_files.find(path);
    const Slot slot = SlotAt(*m_tree, *wide);
    if (slot.kind == Slot::Kind::File && (found == m_files.end() || found->second.blob)) {
      m_files.insert_or_assign(std::string(path), File{*std::move(wide), std::nullopt});
      return {};
    }
    if (found != m_files.end() && found->second.blob) {
      m_files.erase(found);
      return {};
    }
    return Put(path, nullptr);
  });
}

Status Draft::Rename(std::string_view from, std::string_view to) {
  return Try([&]() -> Status {
    const Result<WideString> source = CheckedPath(from);
    if (!source) return source.error();
    const Result<WideString> target = CheckedPath(to);
    if (!target) return target.error();
    Flush();
    const cow_ptr<Object> object = m_tree->GetDeepObject(*source);
    if (!object) return NothingAt(from);
    if (m_tree->GetIdByPath(*target)) {
      return CannotMove(from, to, "there is a file or folder already");
    }
    if (to.starts_with(std::string(from) + "/")) {
      return CannotMove(from, to, "the new path is below the old one");
    }
    Status status = CheckPlace(std::string(to), false);
    if (!status) return status;
    BatchEdit edit;
    edit.RemoveObject(*source);
    AddTo(edit, *target, object);
    Tree tree(*m_tree);
    edit.ApplyTo(m_repository, tree);
    m_tree = m_repository->SyncWithStorage(HandleOn(tree));
    return {};
  });
}

Status Draft::Put(std::string_view path, const cow_ptr<Object>& object) {
  return Try([&]() -> Status {
    const Result<WideString> wide = CheckedPath(path);
    if (!wide) return wide.error();
    Flush();
    const bool is_there = m_tree->GetIdByPath(*wide).has_value();
    if (!object && !is_there) return NothingAt(path);
    Status status = CheckPlace(std::string(path), true);
    if (!status) return status;
    BatchEdit edit;
    if (is_there) edit.RemoveObject(*wide);
    if (object) AddTo(edit, *wide, object);
    Tree tree(*m_tree);
    edit.ApplyTo(m_repository, tree);
    m_tree = m_repository->SyncWithStorage(HandleOn(tree));
    return {};
  });
}

// A folder of the tree may have lost all its files since. The edits are put into the tree before
// the answer is final.
Status Draft::CheckPlace(const std::string& path, bool replacesFolder) {
  const auto is_blocked = [&] {
    return LeadsThroughFile(path) || (!replacesFolder && IsFolder(path));
  };
  if (is_blocked()) {
    Flush();
    if (LeadsThroughFile(path)) return InTheWay(path, "the path leads through a file");
    if (!replacesFolder && IsFolder(path)) return InTheWay(path, "there is a folder");
  }
  return {};
}

bool Draft::LeadsThroughFile(std::string_view path) const {
  cow_ptr<Tree> folder = m_tree;  // null below what the tree lacks
  std::size_t begin = 0;
  for (std::size_t end = path.find('/'); end != path.npos; end = path.find('/', begin)) {
    const auto found = m_files.find(path.substr(0, end));
    if (found != m_files.end() && found->second.blob) return true;
    if (folder) {
      const WideString name = ToWide(path.substr(begin, end - begin));
      const Slot slot = SlotAt(*folder, name);
      if (slot.kind == Slot::Kind::File && found == m_files.end()) return true;
      folder = slot.kind == Slot::Kind::Folder ? folder->GetLocalTree(name) : nullptr;
    }
    begin = end + 1;
  }
  return false;
}

bool Draft::IsFolder(const std::string& path) const {
  const std::string prefix = path + "/";
  for (auto at = m_files.lower_bound(prefix); at != m_files.end() && at->first.starts_with(prefix);
       ++at) {
    if (at->second.blob) return true;
  }
  return SlotAt(*m_tree, ToWide(path)).kind == Slot::Kind::Folder;
}

}  // namespace TalVcs::Kit
