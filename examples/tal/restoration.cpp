#include "restoration.h"

#include "interrupt.h"

#include <algorithm>

namespace Tal {

void Restoration::Put(const FileTree& files, const std::string& path) {
  std::optional<FileContent> former;
  if (m_folder.Examine(path).type == EntryType::File) former = m_folder.Read(path);
  if (const BlobPtr blob = files.Find(path)) {
    m_folder.Write(path, blob->GetData(), files.KindOf(path));
  } else if (former) {
    m_folder.Remove(path);
  }
  m_former.emplace_back(path, std::move(former));
}

void Restoration::Apply(const FileTree& files, const std::vector<std::string>& paths) {
  try {
    for (const std::string& path : paths) {
      StopIfInterrupted();
      Put(files, path);
    }
  } catch (...) {
    Undo();
    throw;
  }
}

void Restoration::Undo() {
  for (; !m_former.empty(); m_former.pop_back()) {
    const auto& [path, content] = m_former.back();
    if (content) {
      m_folder.Write(path, content->bytes, content->stat.kind);
    } else if (m_folder.Examine(path).type == EntryType::File) {
      m_folder.Remove(path);
    }
  }
}

std::vector<std::string> PathsThatDiffer(const Folder& folder, const FileTree& files,
                                         const std::vector<std::string>& paths) {
  std::vector<std::string> differing;
  for (const std::string& path : paths) {
    CheckPath(path);
    const BlobPtr blob = files.Find(path);
    const bool is_equal = blob ? folder.Holds(path, blob->GetId(), files.KindOf(path))
                               : folder.Examine(path).type != EntryType::File;
    if (!is_equal) differing.push_back(path);
  }
  std::stable_partition(differing.begin(), differing.end(),
                        [&](const std::string& path) { return !files.Find(path); });
  return differing;
}

}  // namespace Tal
