#include <kit/workspace/internal/reachable_objects.h>
#include <kit/workspace/internal/read_folders.h>

#include <algorithm>
#include <span>
#include <utility>

namespace TalVcs::Kit {

Status ReachableObjects::Add(const HistoryGraph::Node& version) {
  std::vector<Id> added;
  if (m_ids.Insert(version.id, 0).second) added.push_back(IdOf(version.id));
  return AddRoot(version, std::move(added));
}

Status ReachableObjects::AddRoot(const HistoryGraph::Node& version) { return AddRoot(version, {}); }

Status ReachableObjects::AddRoot(const HistoryGraph::Node& version, std::vector<Id> added) {
  std::vector<Id> trees;
  if (version.hasRoot && m_ids.Insert(version.root, 0).second) {
    trees.push_back(IdOf(version.root));
    added.push_back(trees.front());
  }
  Status status = AddTrees(std::move(trees), added);
  if (status) status = AddSizes(added);
  if (status) status = m_reporter.Add(added.size());
  return status;
}

Status ReachableObjects::AddTrees(std::vector<Id> trees, std::vector<Id>& all) {
  while (!trees.empty()) {
    const std::size_t count = std::min(trees.size(), kFoldersTogether);
    const Result<std::vector<FolderRecord>> folders =
        ReadFolders(m_store, std::span(trees).last(count));
    if (!folders) return folders.error();
    trees.resize(trees.size() - count);
    for (const FolderRecord& folder : *folders) {
      for (const PackedReference& entry : folder.entries) {
        if (!m_ids.Insert(*KeyOf(entry.id), 0).second) continue;
        all.push_back(entry.id);
        if (entry.type == ObjectType::Tree) trees.push_back(entry.id);
      }
    }
  }
  return {};
}

Status ReachableObjects::AddSizes(const std::vector<Id>& ids) {
  const Result<std::vector<std::optional<std::uint64_t>>> sizes = m_store.Sizes(ids);
  if (!sizes) return sizes.error();
  for (const auto& size : *sizes) m_sizeBytes += size.value_or(0);
  return {};
}

}  // namespace TalVcs::Kit
