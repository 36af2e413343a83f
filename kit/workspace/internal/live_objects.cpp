// Each object counts the entries of live folders that name it, and the root once. A folder that
// becomes live adds one to each of its entries, and one that ceases to be live takes that back. So
// a move touches the folders that differ and nothing else, also where folders share their content.

#include <kit/workspace/internal/live_objects.h>
#include <kit/workspace/internal/read_folders.h>

#include <algorithm>
#include <span>
#include <utility>

namespace TalVcs::Kit {

Status LiveObjects::MoveTo(const Id& root) {
  m_gained.clear();
  m_lost.clear();
  if (root == m_root) return {};
  if (!root.View().IsEmpty()) {
    Status status = Enter(root);
    if (!status) return status;
  }
  const Id before = std::exchange(m_root, root);
  if (!before.View().IsEmpty()) Leave(NumberOf(before));
  for (const std::uint32_t number : m_gained) m_totals.sizeBytes += m_objects[number].sizeBytes;
  for (const std::uint32_t number : m_lost) m_totals.sizeBytes -= m_objects[number].sizeBytes;
  m_totals.count = m_totals.count + m_gained.size() - m_lost.size();
  return m_reporter.Add(m_gained.size());
}

std::uint32_t LiveObjects::NumberOf(const Id& id) {
  const auto [number, is_new] =
      m_numbers.Insert(*KeyOf(id), static_cast<std::uint32_t>(m_objects.size()));
  if (is_new) m_objects.emplace_back();
  return *number;
}

bool LiveObjects::AddReference(std::uint32_t number) {
  if (m_objects[number].references++ != 0) return false;
  m_gained.push_back(number);
  return true;
}

Status LiveObjects::Enter(const Id& root) {
  std::vector<Id> folders;
  std::vector<Id> files;
  if (AddReference(NumberOf(root))) folders.push_back(root);
  while (!folders.empty()) {
    Status status = EnterFolders(folders, files);
    if (!status) return status;
  }
  return ReadSizes(files);
}

Status LiveObjects::EnterFolders(std::vector<Id>& folders, std::vector<Id>& files) {
  const std::size_t count = std::min(folders.size(), kFoldersTogether);
  const std::vector<Id> ids(folders.end() - static_cast<std::ptrdiff_t>(count), folders.end());
  folders.resize(folders.size() - count);
  const Result<std::vector<FolderRecord>> records = ReadFolders(m_store, ids);
  if (!records) return records.error();
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint32_t folder = NumberOf(ids[i]);
    m_objects[folder].sizeBytes = (*records)[i].sizeBytes;
    m_objects[folder].hasSize = true;
    std::vector<std::uint32_t> entries;
    for (const PackedReference& entry : (*records)[i].entries) {
      const std::uint32_t number = NumberOf(entry.id);
      entries.push_back(number);
      if (!AddReference(number)) continue;
      if (entry.type == ObjectType::Tree) {
        folders.push_back(entry.id);
      } else if (!m_objects[number].hasSize) {
        files.push_back(entry.id);
      }
    }
    m_entries.insert_or_assign(folder, std::move(entries));
  }
  return m_reporter.Add(0);
}

Status LiveObjects::ReadSizes(const std::vector<Id>& files) {
  const auto sizes = m_store.Sizes(files);
  if (!sizes) return sizes.error();
  for (std::size_t i = 0; i < files.size(); ++i) {
    Object& object = m_objects[NumberOf(files[i])];
    object.sizeBytes = (*sizes)[i].value_or(0);
    object.hasSize = true;
  }
  return {};
}

void LiveObjects::Leave(std::uint32_t root) {
  std::vector<std::uint32_t> leaving{root};
  while (!leaving.empty()) {
    const std::uint32_t number = leaving.back();
    leaving.pop_back();
    if (--m_objects[number].references != 0) continue;
    m_lost.push_back(number);
    const auto folder = m_entries.find(number);
    if (folder == m_entries.end()) continue;
    leaving.insert(leaving.end(), folder->second.begin(), folder->second.end());
    m_entries.erase(folder);
  }
}

}  // namespace TalVcs::Kit
