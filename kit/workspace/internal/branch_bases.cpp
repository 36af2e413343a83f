// Each version has the set of the branches that contain it, which goes from the heads down:
//
//     A---B---M---D      master; M merges Y     D, M: {master}      Z: {topic}
//      \     .                                  B:    {master}      Y: {master, topic}
//       X---Y---Z        topic                  X, A: {master, topic}
//
// Two branches begin a merge with the versions that both contain while no follower of the version
// is contained by both: that is Y. With one follower the set stays the same, so only a version with
// several is looked at. Many versions have the same set, which is stored once.

#include <kit/workspace/internal/branch_bases.h>

#include <algorithm>
#include <map>
#include <utility>

namespace TalVcs::Kit {

namespace {

using Index = HistoryGraph::Index;
/// The number of a set. 0 is the empty one.
using SetNumber = std::uint32_t;

/// An order of lists of numbers. `operator<` compares too few bytes of them on big-endian
/// processors in the standard library of GCC before 12.4.
struct ListLess {
  template <class Number>
  bool operator()(const std::vector<Number>& a, const std::vector<Number>& b) const {
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end());
  }
};

/// Sets of branches.
class BranchSets {
 public:
  explicit BranchSets(std::size_t branches) : m_words((branches + 63) / 64) {
    NumberOf(Words(m_words));
  }

  SetNumber WithBranch(SetNumber set, std::size_t branch) {
    Words words = *m_sets[set];
    words[branch / 64] |= std::uint64_t{1} << (branch % 64);
    return NumberOf(std::move(words));
  }

  SetNumber Union(SetNumber a, SetNumber b) {
    if (a == b || b == 0) return a;
    if (a == 0) return b;
    const auto [known, is_new] = m_unions.try_emplace(std::minmax(a, b), 0);
    if (!is_new) return known->second;
    Words words = *m_sets[a];
    Add(words, b);
    return known->second = NumberOf(std::move(words));
  }

  /// True if two branches of the union of these sets are together in none of them. They are sorted,
  /// and none is empty.
  bool SeparateBranches(const std::vector<SetNumber>& sets) {
    if (sets.size() < 2) return false;
    const auto [known, is_new] = m_separations.try_emplace(sets, false);
    if (is_new) known->second = FindSeparation(sets);
    return known->second;
  }

 private:
  using Words = std::vector<std::uint64_t>;

  SetNumber NumberOf(Words words) {
    const auto next = static_cast<SetNumber>(m_sets.size());
    const auto [place, is_new] = m_numbers.try_emplace(std::move(words), next);
    if (is_new) m_sets.push_back(&place->first);
    return place->second;
  }

  void Add(Words& words, SetNumber set) const {
    for (std::size_t i = 0; i < m_words; ++i) words[i] |= (*m_sets[set])[i];
  }

  bool Contains(SetNumber set, std::size_t branch) const {
    return ((*m_sets[set])[branch / 64] >> (branch % 64) & 1) != 0;
  }

  bool FindSeparation(const std::vector<SetNumber>& sets) const {
    Words all(m_words);
    for (const SetNumber set : sets) Add(all, set);
    if (std::ranges::any_of(sets, [&](SetNumber set) { return *m_sets[set] == all; })) return false;
    if (sets.size() == 2) return true;
    for (std::size_t branch = 0; branch < 64 * m_words; ++branch) {
      Words together(m_words);
      bool is_met = false;
      for (const SetNumber set : sets) {
        if (!Contains(set, branch)) continue;
        is_met = true;
        Add(together, set);
      }
      if (is_met && together != all) return true;
    }
    return false;
  }

  const std::size_t m_words;
  std::map<Words, SetNumber, ListLess> m_numbers;
  std::vector<const Words*> m_sets;
  std::map<std::pair<SetNumber, SetNumber>, SetNumber> m_unions;
  std::map<std::vector<SetNumber>, bool, ListLess> m_separations;
};

}  // namespace

Result<std::vector<Index>> FindBranchBases(const HistoryGraph& graph, Reporter& reporter) {
  // Branches with one head are in the same sets and count as one.
  std::vector<bool> is_head(graph.Count());
  std::vector<Index> heads;
  for (const HistoryGraph::Branch& branch : graph.Branches()) {
    if (branch.isTag || is_head[branch.head]) continue;
    is_head[branch.head] = true;
    heads.push_back(branch.head);
  }
  BranchSets sets(heads.size());
  std::vector<SetNumber> set_of(graph.Count());
  for (std::size_t i = 0; i < heads.size(); ++i) set_of[heads[i]] = sets.WithBranch(0, i);
  const Followers followers(graph.Nodes(), graph.Merges());
  std::vector<Index> bases;
  std::vector<SetNumber> after;
  for (Index i = graph.Count(); i-- > 0;) {
    after.clear();
    for (const Index follower : followers.Of(i)) {
      if (set_of[follower] != 0) after.push_back(set_of[follower]);
    }
    std::ranges::sort(after);
    after.erase(std::unique(after.begin(), after.end()), after.end());
    // A head is together with every other branch that contains it.
    if (sets.SeparateBranches(after) || (is_head[i] && !after.empty())) bases.push_back(i);
    for (const SetNumber set : after) set_of[i] = sets.Union(set_of[i], set);
    const Status status = reporter.Add(1);
    if (!status) return status.error();
  }
  return bases;
}

}  // namespace TalVcs::Kit
