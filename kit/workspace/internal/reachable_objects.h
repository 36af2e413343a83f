#pragma once

#include <kit/open/internal/id_map.h>
#include <kit/open/internal/reporter.h>
#include <kit/store/object_store.h>
#include <kit/workspace/internal/history_graph.h>

#include <cstdint>
#include <vector>

namespace TalVcs::Kit {

/// The objects of a store that some versions reach, with their bytes. Parents aren't followed.
class ReachableObjects {
 public:
  /// Both must outlive the set.
  ReachableObjects(IObjectStore& store, Reporter& reporter)
      : m_store(store), m_reporter(reporter) {}

  /// Adds a version and everything in its root.
  Status Add(const HistoryGraph::Node& version);
  /// Adds everything in the root of a version, without the commit.
  Status AddRoot(const HistoryGraph::Node& version);

  bool Contains(const ObjectKey& id) const { return m_ids.Contains(id); }
  std::uint64_t SizeBytes() const noexcept { return m_sizeBytes; }

 private:
  Status AddRoot(const HistoryGraph::Node& version, std::vector<Id> added);
  Status AddTrees(std::vector<Id> trees, std::vector<Id>& all);
  Status AddSizes(const std::vector<Id>& ids);

  IObjectStore& m_store;
  Reporter& m_reporter;
  IdMap m_ids;
  std::uint64_t m_sizeBytes = 0;
};

}  // namespace TalVcs::Kit
