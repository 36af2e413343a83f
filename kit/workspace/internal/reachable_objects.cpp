#include <kit/text.h>
#include <kit/workspace/internal/checked_text.h>
#include <kit/workspace/internal/reachable_objects.h>
#include <talvcs/persistence/packed_object.h>

#include <utility>

namespace TalVcs::Kit {

namespace {

/// Where the visit of a folder puts what it names.
struct Found {
  std::unordered_set<Id>& ids;
  std::vector<Id>& trees;
  std::vector<Id>& all;

  static void Take(void* self, const PackedReference& reference) {
    Found& found = *static_cast<Found*>(self);
    if (!found.ids.insert(reference.id).second) return;
    found.all.push_back(reference.id);
    if (reference.type == ObjectType::Tree) found.trees.push_back(reference.id);
  }
};

}  // namespace

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

// Level by level, each with one read.
Status ReachableObjects::AddTrees(std::vector<Id> trees, std::vector<Id>& all) {
  while (!trees.empty()) {
    std::vector<Id> below;
    Status status;
    const auto sink = [&](const Id& id, Result<Buffer> packed) {
      Found found{m_ids, below, all};
      if (!packed) {
        status = std::move(packed).error();
      } else if (!VisitReferences(*packed, {&found, &Found::Take})) {
        status =
            WorkspaceError(ErrorCode::Damaged, "folder " + ToUtf8(id.View()) + " can't be read",
                           ToUtf8(id.View()));
      }
    };
    const Status read = m_store.Read(trees, sink);
    if (!read) return read;
    if (!status) return status;
    trees = std::move(below);
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
