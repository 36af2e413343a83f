#include <kit/open/internal/branch_numbers.h>
#include <kit/open/internal/id_map.h>
#include <kit/open/internal/number_sets.h>
#include <kit/open/internal/record_reader.h>
#include <kit/open/internal/reporter.h>
#include <kit/open/statistics.h>

#include <algorithm>
#include <map>
#include <utility>

// Each object has the set of the branches that reach it, by their numbers. Oldest commits have the
// largest sets and come first. So a folder that a commit has from its ancestors has a larger set
// already and isn't entered again. One that two branches came to have apart from each other is
// entered once for each.

namespace TalVcs::Kit {

namespace {

constexpr std::uint32_t kNone = BranchNumbers::kNone;
constexpr std::size_t kTreesTogether = 64;
constexpr std::size_t kSizesTogether = 1024;

void Count(ObjectTotals& totals, std::uint64_t size_bytes) {
  ++totals.count;
  totals.sizeBytes += size_bytes;
}

void Add(ObjectTotals& totals, const ObjectTotals& more) {
  totals.count += more.count;
  totals.sizeBytes += more.sizeBytes;
}

void Remove(ObjectTotals& totals, const ObjectTotals& less) {
  totals.count -= less.count;
  totals.sizeBytes -= less.sizeBytes;
}

class Counting {
 public:
  Counting(IObjectStore& store, const Progress& progress) : m_store(store), m_reporter(progress) {}

  Result<StoreStatistics> Run() {
    const Result<std::vector<Head>> heads = m_store.Heads();
    if (!heads) return heads.error();
    Status status = m_reporter.Begin("history");
    for (std::uint32_t branch = 0; status && branch < heads->size(); ++branch) {
      status = ReadHistory((*heads)[branch].id, branch);
    }
    if (status) status = m_reporter.End();
    if (status) status = m_reporter.Begin("contents");
    if (status) status = CountContents();
    if (status) status = m_reporter.End();
    if (status) status = CountUnreferenced();
    if (!status) return status.error();
    m_result.branches = TotalsOf(*heads);
    return std::move(m_result);
  }

 private:
  struct Node {
    ObjectKey root{};
    bool hasRoot = false;
    std::uint64_t sizeBytes = 0;
    std::uint64_t commits = 0;  // with those before it
  };
  /// An object that more branches reach than before.
  struct Step {
    Id id;
    std::uint32_t before;
    std::uint32_t after;
  };

  Status ReadHistory(const Id& head, std::uint32_t branch) {
    const std::optional<ObjectKey> key = KeyOf(head);
    if (!key) {
      if (!head.View().IsEmpty()) ++m_result.unreadable;
      return {};
    }
    if (!m_commits.Contains(*key)) {
      const Status status = ReadNewCommits(head);
      if (!status) return status;
    }
    const std::uint32_t* index = m_commits.Find(*key);
    if (index != nullptr && *index != kNone - 1) m_branchesAt[*index].push_back(branch);
    return {};
  }

  // Reads from a head down to a commit that was read before.
  Status ReadNewCommits(const Id& head) {
    CommitReader reader(m_store, head);
    std::uint32_t child = kNone;
    bool is_known = false;
    while (!is_known && !reader.AtEnd()) {
      const Result<std::vector<CommitRecord>> window = reader.Next();
      if (!window) return window.error();
      for (const CommitRecord& commit : *window) {
        const Result<std::uint32_t> index = AddCommit(commit, is_known);
        if (!index) return index.error();
        if (*index != kNone && child != kNone) {
          m_parents[child] = *index;
        }
        child = *index;
        if (is_known) break;
      }
    }
    return {};
  }

  // Returns the index of the commit's node, or none if it can't be read.
  Result<std::uint32_t> AddCommit(const CommitRecord& commit, bool& isKnown) {
    constexpr std::uint32_t kUnreadable = kNone - 1;
    const auto next = static_cast<std::uint32_t>(m_nodes.size());
    const auto [index, added] =
        m_commits.Insert(*KeyOf(commit.id), commit.problem ? kUnreadable : next);
    isKnown = !added;
    if (!added) return *index == kUnreadable ? kNone : *index;
    if (commit.problem) {
      ++m_result.unreadable;
      return kNone;
    }
    m_parents.push_back(kNone);
    Node& node = m_nodes.emplace_back();
    node.sizeBytes = commit.packed.GetSize();
    node.hasRoot = !commit.root.View().IsEmpty();
    if (node.hasRoot) node.root = *KeyOf(commit.root);
    Count(m_result.commits, node.sizeBytes);
    const Status status = m_reporter.Add(1, node.sizeBytes);
    if (!status) return status.error();
    return next;
  }

  Status CountContents() {
    const BranchNumbers numbers(m_parents, m_branchesAt);
    m_numbered.assign(numbers.Branches().begin(), numbers.Branches().end());
    Status status;
    for (const std::uint32_t index : numbers.Order()) {
      if (!status) return status;
      Node& node = m_nodes[index];
      node.commits = 1 + (m_parents[index] == kNone ? 0 : m_nodes[m_parents[index]].commits);
      const std::uint32_t branches = m_sets.MakeRange(numbers.Reaching(index));
      Move(NumberSets::kEmpty, branches, node.sizeBytes);
      if (!node.hasRoot) continue;
      Reach(m_trees, node.root, branches, m_pendingTrees);
      status = WalkTrees(branches);
    }
    if (status) status = CountBlobs();
    return status;
  }

  // Notes that branches reach an object, and adds a step for it if one of them is new.
  void Reach(IdMap& objects, const ObjectKey& key, std::uint32_t branches,
             std::vector<Step>& steps) {
    std::uint32_t* reached = objects.Insert(key, NumberSets::kEmpty).first;
    if (m_sets.Includes(*reached, branches)) return;
    const std::uint32_t before = std::exchange(*reached, m_sets.Union(*reached, branches));
    steps.push_back({IdOf(key), before, *reached});
  }

  Status WalkTrees(std::uint32_t branches) {
    while (!m_pendingTrees.empty()) {
      const std::size_t first =
          m_pendingTrees.size() - std::min(m_pendingTrees.size(), kTreesTogether);
      const std::vector<Step> steps(m_pendingTrees.begin() + static_cast<std::ptrdiff_t>(first),
                                    m_pendingTrees.end());
      m_pendingTrees.resize(first);
      std::vector<Id> ids;
      ids.reserve(steps.size());
      for (const Step& step : steps) ids.push_back(step.id);
      Status status =
          ReadEach(m_store, ids, [&](std::size_t index, Result<Buffer> packed) -> Status {
            return CountTree(steps[index], packed, branches);
          });
      if (status && m_pendingBlobs.size() >= kSizesTogether) status = CountBlobs();
      if (!status) return status;
    }
    return {};
  }

  Status CountTree(const Step& step, const Result<Buffer>& packed, std::uint32_t branches) {
    const bool is_new = step.before == NumberSets::kEmpty;
    if (CheckRecord(step.id, ObjectType::Tree, packed)) {
      if (is_new) ++m_result.unreadable;
      return {};
    }
    if (is_new) Count(m_result.trees, packed->GetSize());
    Move(step.before, step.after, packed->GetSize());
    auto visit = [&](const PackedReference& reference) {
      const bool is_tree = reference.type == ObjectType::Tree;
      Reach(is_tree ? m_trees : m_blobs, *KeyOf(reference.id), branches,
            is_tree ? m_pendingTrees : m_pendingBlobs);
    };
    using Visit = decltype(visit);
    VisitReferences(*packed, {&visit, [](void* object, const PackedReference& reference) {
                                (*static_cast<Visit*>(object))(reference);
                              }});
    return m_reporter.Add(1, packed->GetSize());
  }

  // A blob may be pending twice, with the sets one after the other.
  Status CountBlobs() {
    std::vector<Id> ids;
    ids.reserve(m_pendingBlobs.size());
    for (const Step& step : m_pendingBlobs) ids.push_back(step.id);
    const auto sizes = m_store.Sizes(ids);
    if (!sizes) return sizes.error();
    for (std::size_t index = 0; index < m_pendingBlobs.size(); ++index) {
      const Step& step = m_pendingBlobs[index];
      const bool is_new = step.before == NumberSets::kEmpty;
      const std::optional<std::uint64_t> size_bytes = (*sizes)[index];
      if (!size_bytes) {
        if (is_new) ++m_result.unreadable;
        continue;
      }
      if (is_new) Count(m_result.blobs, *size_bytes);
      Move(step.before, step.after, *size_bytes);
    }
    m_pendingBlobs.clear();
    return m_reporter.Add(ids.size());
  }

  // Counts an object with the set `after` in place of `before`.
  void Move(std::uint32_t before, std::uint32_t after, std::uint64_t size_bytes) {
    m_totals.resize(std::max<std::size_t>(m_totals.size(), m_sets.GetCount()));
    Count(m_totals[after], size_bytes);
    if (before != NumberSets::kEmpty) Remove(m_totals[before], {1, size_bytes});
  }

  Status CountUnreferenced() {
    Status status = m_reporter.Begin("unreferenced");
    if (!status) return status;
    Status listed = m_store.List([&](std::span<const Id> ids) {
      for (const Id& id : ids) {
        const std::optional<ObjectKey> key = KeyOf(id);
        if (key && (m_commits.Contains(*key) || m_trees.Contains(*key) || m_blobs.Contains(*key))) {
          continue;
        }
        m_unreferenced.push_back(id);
      }
      status = m_reporter.Add(ids.size());
      return status.ok();
    });
    if (!status) return status;
    if (!listed) return listed;
    for (std::size_t first = 0; first < m_unreferenced.size(); first += kSizesTogether) {
      const std::size_t count = std::min(kSizesTogether, m_unreferenced.size() - first);
      const auto sizes = m_store.Sizes(std::span(m_unreferenced).subspan(first, count));
      if (!sizes) return sizes.error();
      for (const auto& size_bytes : *sizes) Count(m_result.unreferenced, size_bytes.value_or(0));
    }
    return m_reporter.End();
  }

  std::vector<BranchStatistics> TotalsOf(const std::vector<Head>& heads) const {
    std::vector<BranchStatistics> totals(heads.size());
    for (std::size_t branch = 0; branch < heads.size(); ++branch) {
      totals[branch].name = heads[branch].name;
    }
    for (const auto& [index, branches] : m_branchesAt) {
      for (const std::uint32_t branch : branches) totals[branch].commits = m_nodes[index].commits;
    }
    // What is shared is added at the first number of a range and taken away after the last.
    std::vector<ObjectTotals> begun(m_numbered.size() + 1);
    std::vector<ObjectTotals> ended(m_numbered.size() + 1);
    for (std::uint32_t set = 0; set < m_totals.size(); ++set) {
      const std::span<const NumberRange> ranges = m_sets.Ranges(set);
      if (ranges.size() == 1 && ranges.front().GetCount() == 1) {
        Add(totals[m_numbered[ranges.front().first]].own, m_totals[set]);
        continue;
      }
      for (const NumberRange& range : ranges) {
        Add(begun[range.first], m_totals[set]);
        Add(ended[range.end], m_totals[set]);
      }
    }
    ObjectTotals sum;
    for (std::size_t number = 0; number < m_numbered.size(); ++number) {
      Add(sum, begun[number]);
      Remove(sum, ended[number]);
      totals[m_numbered[number]].shared = sum;
    }
    return totals;
  }

  IObjectStore& m_store;
  Reporter m_reporter;
  StoreStatistics m_result;
  NumberSets m_sets;                                                 // of the numbers of branches
  std::vector<Node> m_nodes;                                         // of the commits
  std::vector<std::uint32_t> m_parents;                              // of the nodes
  std::map<std::uint32_t, std::vector<std::uint32_t>> m_branchesAt;  // by index of the head's node
  std::vector<std::uint32_t> m_numbered;                             // branches, by their number
  IdMap m_commits;                                                   // indexes of nodes
  IdMap m_trees;                                                     // sets of branches
  IdMap m_blobs;
  std::vector<Step> m_pendingTrees;
  std::vector<Step> m_pendingBlobs;
  std::vector<ObjectTotals> m_totals;  // by set
  std::vector<Id> m_unreferenced;
};

}  // namespace

Result<StoreStatistics> Statistics(IObjectStore& store, const StatisticsOptions& options) {
  return Counting(store, options.progress).Run();
}

}  // namespace TalVcs::Kit
