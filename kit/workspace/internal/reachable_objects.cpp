#include <kit/workspace/internal/reachable_objects.h>
#include <kit/workspace/internal/read_folders.h>

#include <algorithm>
#include <span>
#include <utility>

namespace TalVcs::Kit {

Status ReachableObjects::Add(const Id& commit, const Id& root) {
  std::vector<Id> added;
  if (m_ids.insert(commit).second) added.push_back(commit);
  std::vector<Id> trees;
  if (!root.View().IsEmpty() && m_ids.insert(root).second) {
    added.push_back(root);
    trees.push_back(root);
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
        if (!m_ids.insert(entry.id).second) continue;
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
