#pragma once

#include <kit/open/internal/reporter.h>
#include <kit/store/object_store.h>

#include <cstdint>
#include <unordered_set>
#include <vector>

namespace TalVcs::Kit {

/// The objects of a store that some commits reach, with their bytes. Parents aren't followed.
class ReachableObjects {
 public:
  /// Both must outlive the set.
  ReachableObjects(IObjectStore& store, Reporter& reporter)
      : m_store(store), m_reporter(reporter) {}

  /// Adds a commit and everything in its root.
  Status Add(const Id& commit, const Id& root);

  bool Contains(const Id& id) const { return m_ids.contains(id); }
  std::uint64_t SizeBytes() const noexcept { return m_sizeBytes; }

 private:
  Status AddTrees(std::vector<Id> trees, std::vector<Id>& all);
  Status AddSizes(const std::vector<Id>& ids);

  IObjectStore& m_store;
  Reporter& m_reporter;
  std::unordered_set<Id> m_ids;
  std::uint64_t m_sizeBytes = 0;
};

}  // namespace TalVcs::Kit
