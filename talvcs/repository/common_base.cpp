#include <talvcs/objects/internal/commit_access.h>
#include <talvcs/repository/repository.h>

#include <cstdint>
#include <functional>
#include <vector>

// Every commit has one parent, so two chains that meet stay one from there on:
//
//   A - B - C - D      first
//       |
//       + - E          second: it stands on E and, in pass 2, on B, which the other walker
//                      finds in pass 3
//
// Both walkers advance together and the search ends where one steps on a commit that the other has
// stood on, so the cost follows the larger distance and not the depth of the history.
//
// Commits count as the same when their ids are equal. Stored commits are one instance an id, so the
// walkers look for instances, which needs no id to be read: of ids, each of them would cost a wait
// for memory. Only chains that were stored apart are walked to their roots. Ids decide at the end:
// chains whose ids are equal at some commit are equal from there to the root, so from the common
// instance, or from the two roots, the search goes down again as long as the ids on both sides
// agree.

namespace TalVcs {

namespace {

/// A set of instances: open addressing over pointers, so that no entry needs an allocation.
class InstanceSet {
 public:
  bool Contains(const Commit* commit) const noexcept {
    return m_count != 0 && m_slots[FindSlot(commit)] == commit;
  }

  void Insert(const Commit* commit) {
    if (2 * m_count >= m_mask) Grow();
    m_slots[FindSlot(commit)] = commit;
    ++m_count;
  }

 private:
  static constexpr std::size_t kFirstSize = 64;

  std::size_t FindSlot(const Commit* commit) const noexcept {
    const std::hash<const Commit*> hash;
    const std::uint64_t mixed = std::uint64_t{hash(commit)} * 0x9E3779B97F4A7C15;
    auto index = static_cast<std::size_t>(mixed >> 32) & m_mask;
    while (m_slots[index] != nullptr && m_slots[index] != commit) index = (index + 1) & m_mask;
    return index;
  }

  void Grow() {
    std::vector<const Commit*> old(m_slots.empty() ? kFirstSize : 2 * m_slots.size());
    old.swap(m_slots);
    m_mask = m_slots.size() - 1;
    for (const Commit* commit : old) {
      if (commit != nullptr) m_slots[FindSlot(commit)] = commit;
    }
  }

  std::vector<const Commit*> m_slots;
  std::size_t m_mask = 0;
  std::size_t m_count = 0;
};

/// Walks from a commit to its root, by the handles that hold the commits.
class Walker {
 public:
  explicit Walker(const cow_ptr<Commit>& start) : m_path{&start}, m_here(start.get()) {}

  bool AtEnd() const noexcept { return m_ended; }
  const Commit* Here() const noexcept { return m_here; }
  bool Visited(const Commit* commit) const noexcept { return m_visited.Contains(commit); }
  void Remember() { m_visited.Insert(Here()); }
  void Step() {
    if (m_ended) return;
    const cow_ptr<Commit>& parent = CommitAccess::Parent(*Here());
    m_ended = !parent;
    if (m_ended) return;
    m_path.push_back(&parent);
    m_here = parent.get();
  }

  std::size_t Length() const noexcept { return m_path.size(); }
  const cow_ptr<Commit>& At(std::size_t step) const noexcept { return *m_path[step]; }
  std::size_t StepOf(const Commit* commit) const noexcept {
    std::size_t step = Length() - 1;
    while (At(step).get() != commit) --step;
    return step;
  }

 private:
  std::vector<const cow_ptr<Commit>*> m_path;
  const Commit* m_here;
  InstanceSet m_visited;
  bool m_ended = false;
};

/// How far two walkers have gone on a part of history that they may share.
struct Meeting {
  std::size_t first;
  std::size_t second;
};

/// Returns where the walkers met, or the ends of both paths if they share no instance.
Meeting WalkUntilMeeting(Walker& first, Walker& second) {
  while (!first.AtEnd() && !second.AtEnd()) {
    for (const bool turn_of_first : {true, false}) {
      Walker& walker = turn_of_first ? first : second;
      const Walker& other = turn_of_first ? second : first;
      const Commit* here = walker.Here();
      if (other.Visited(here)) return {first.StepOf(here), second.StepOf(here)};
      walker.Remember();
    }
    first.Step();
    second.Step();
  }
  // One has come to its root, so the other one goes on alone and need not remember its way.
  Walker& walker = first.AtEnd() ? second : first;
  const Walker& ended = first.AtEnd() ? first : second;
  for (; !walker.AtEnd(); walker.Step()) {
    const Commit* here = walker.Here();
    if (ended.Visited(here)) return {first.StepOf(here), second.StepOf(here)};
  }
  return {first.Length() - 1, second.Length() - 1};
}

}  // namespace

cow_ptr<Commit> Repository::GetCommonBase(cow_ptr<Commit> first, cow_ptr<Commit> second) const {
  if (!first || !second) return nullptr;
  Walker first_walker(first);
  Walker second_walker(second);
  const auto same = [&](std::size_t of_first, std::size_t of_second) {
    const cow_ptr<Commit>& a = first_walker.At(of_first);
    const cow_ptr<Commit>& b = second_walker.At(of_second);
    if (a == b) return true;
    const Id& id_of_a = CommitAccess::GetId(*a);
    return id_of_a == CommitAccess::GetId(*b);
  };
  auto [of_first, of_second] = WalkUntilMeeting(first_walker, second_walker);
  if (!same(of_first, of_second)) return nullptr;
  while (of_first > 0 && of_second > 0 && same(of_first - 1, of_second - 1)) {
    --of_first;
    --of_second;
  }
  // Of the two handles the later one counts, and the second argument's at equal distance.
  return of_first > of_second ? first_walker.At(of_first) : second_walker.At(of_second);
}

}  // namespace TalVcs
