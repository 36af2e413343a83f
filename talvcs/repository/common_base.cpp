#include <talvcs/objects/commit_access.h>
#include <talvcs/repository/repository.h>

#include <cstring>

// Every commit has one parent, so two chains that meet stay one from there on:
//
//   A - B - C - D      first
//       |
//       + - E          second:  it records E and, in pass 2, B, which the other walker finds in
//                               pass 3
//
// Both walkers advance together and the search ends at the first commit that either has stood on
// before, so the cost follows the larger distance and not the depth of the history.

namespace TalVcs {

namespace {

/// The commits that the walkers have stood on, by id. Open addressing over pointers: ids are random
/// digits, so their first characters are as good a hash as any, and no entry needs an allocation.
class VisitedCommits {
 public:
  /// Returns false if a commit of that id is there already.
  bool Insert(const Commit& commit) {
    if (2 * (m_count + 1) > m_slots.size()) Grow();
    const Commit** slot = FindSlot(commit);
    if (*slot != nullptr) return false;
    *slot = &commit;
    ++m_count;
    return true;
  }

 private:
  static constexpr std::size_t kFirstSize = 64;

  static std::size_t HashOf(const Id& id) noexcept {
    const TalStringViewT<WideChar> text = id.View();
    std::uint64_t words[2] = {};
    const auto bytes = static_cast<std::size_t>(text.length) * sizeof(WideChar);
    if (bytes != 0) std::memcpy(words, text.text, bytes < sizeof(words) ? bytes : sizeof(words));
    const std::uint64_t mixed = (words[0] * 31 + words[1]) * 0x9E3779B97F4A7C15;
    return static_cast<std::size_t>(mixed >> 32);
  }

  const Commit** FindSlot(const Commit& commit) {
    const Id& id = CommitAccess::GetId(commit);
    const std::size_t mask = m_slots.size() - 1;
    std::size_t index = HashOf(id) & mask;
    while (m_slots[index] != nullptr && m_slots[index] != &commit &&
           !(CommitAccess::GetId(*m_slots[index]) == id)) {
      index = (index + 1) & mask;
    }
    return &m_slots[index];
  }

  void Grow() {
    std::vector<const Commit*> old(m_slots.empty() ? kFirstSize : 2 * m_slots.size());
    old.swap(m_slots);
    for (const Commit* commit : old) {
      if (commit != nullptr) *FindSlot(*commit) = commit;
    }
  }

  std::vector<const Commit*> m_slots;
  std::size_t m_count = 0;
};

/// Stands on a commit through the handle that holds it.
class Walker {
 public:
  explicit Walker(const cow_ptr<Commit>& start) noexcept : m_handle(&start) {}

  bool AtEnd() const noexcept { return !*m_handle; }
  const cow_ptr<Commit>& Handle() const noexcept { return *m_handle; }
  bool FindsVisited(VisitedCommits& visited) const { return !AtEnd() && !visited.Insert(**m_handle); }
  void Step() noexcept {
    if (!AtEnd()) m_handle = &CommitAccess::Parent(**m_handle);
  }

 private:
  const cow_ptr<Commit>* m_handle;
};

}  // namespace

cow_ptr<Commit> Repository::GetCommonBase(cow_ptr<Commit> first, cow_ptr<Commit> second) const {
  if (!first || !second) return nullptr;
  Walker first_walker(first);
  Walker second_walker(second);
  VisitedCommits visited;
  while (!first_walker.AtEnd() || !second_walker.AtEnd()) {
    if (first_walker.FindsVisited(visited)) return first_walker.Handle();
    if (second_walker.FindsVisited(visited)) return second_walker.Handle();
    first_walker.Step();
    second_walker.Step();
  }
  return nullptr;
}

}  // namespace TalVcs
