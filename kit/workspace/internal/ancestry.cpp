// A commit has one parent. The heads that it has merged stand in its description, and make a graph
// of the history:
//
//     A---B---M---D      master; M says that it merges Y
//      \     .
//       X---Y---Z        topic
//
// The merge base of D and Z is Y, not A. The search goes from both heads down, the latest commit
// first, and marks each commit with the sides that contain it. What a common commit contains is
// marked as such and no base itself. It ends when nothing else is left.

#include <kit/text.h>
#include <kit/workspace/internal/ancestry.h>
#include <kit/workspace/internal/message.h>
#include <talvcs/repository/irepository.h>

#include <algorithm>
#include <cstdint>
#include <queue>
#include <unordered_map>
#include <utility>

namespace TalVcs::Kit {

namespace {

constexpr unsigned kFirst = 1;
constexpr unsigned kSecond = 2;
constexpr unsigned kBoth = kFirst | kSecond;
constexpr unsigned kBelowBase = 4;

class BaseSearch {
 public:
  BaseSearch(const IRepository& repository, Reporter& reporter)
      : m_repository(repository), m_reporter(reporter) {}

  Result<std::vector<cow_ptr<Commit>>> Run(const cow_ptr<Commit>& first,
                                           const cow_ptr<Commit>& second) {
    Mark(first, kFirst);
    Mark(second, kSecond);
    std::vector<cow_ptr<Commit>> found;
    while (m_open > 0) {
      const Status status = m_reporter.Add(1);
      if (!status) return status.error();
      const cow_ptr<Commit> commit = m_queue.top().commit;
      m_queue.pop();
      State& state = m_states[commit->GetId()];
      state.isQueued = false;
      unsigned marks = state.marks;
      if ((marks & kBelowBase) == 0) --m_open;
      if (marks == kBoth) {
        found.push_back(commit);
        marks |= kBelowBase;
      }
      MarkParents(*commit, marks);
    }
    std::erase_if(found, [this](const cow_ptr<Commit>& commit) {
      return (m_states[commit->GetId()].marks & kBelowBase) != 0;
    });
    return found;
  }

 private:
  struct State {
    unsigned marks = 0;
    bool isQueued = false;
  };
  struct Queued {
    std::int64_t time;
    std::uint64_t order;
    cow_ptr<Commit> commit;

    bool operator<(const Queued& other) const noexcept {
      return time != other.time ? time < other.time : order > other.order;
    }
  };

  void MarkParents(const TalVcs::Commit& commit, unsigned marks) {
    if (const cow_ptr<Commit> parent = commit.GetParent()) Mark(parent, marks);
    const Annotations annotations = ParseDescription(ToUtf8(commit.GetDesciption())).annotations;
    for (const Id& id : annotations.merges) {
      // A merged history may have been removed since.
      if (const cow_ptr<Commit> merged = m_repository.GetCommitFromStorage(id)) {
        Mark(merged, marks);
      }
    }
  }

  void Mark(const cow_ptr<Commit>& commit, unsigned marks) {
    State& state = m_states[commit->GetId()];
    const unsigned before = state.marks;
    state.marks |= marks;
    if (state.marks == before) return;
    const bool was_open = state.isQueued && (before & kBelowBase) == 0;
    const bool is_open = (state.marks & kBelowBase) == 0;
    if (!state.isQueued) {
      state.isQueued = true;
      m_queue.push({commit->GetCommitTime().ToTimeT(), m_order++, commit});
    }
    if (is_open && !was_open) ++m_open;
    if (!is_open && was_open) --m_open;
  }

  const IRepository& m_repository;
  Reporter& m_reporter;
  std::unordered_map<Id, State> m_states;
  std::priority_queue<Queued> m_queue;
  std::uint64_t m_order = 0;
  std::uint64_t m_open = 0;  // queued commits that aren't below a base
};

}  // namespace

Result<std::vector<cow_ptr<Commit>>> FindMergeBases(const IRepository& repository,
                                                    const cow_ptr<Commit>& first,
                                                    const cow_ptr<Commit>& second,
                                                    Reporter& reporter) {
  if (!first || !second) return std::vector<cow_ptr<Commit>>();
  return BaseSearch(repository, reporter).Run(first, second);
}

bool IsInLine(const cow_ptr<Commit>& commit, const Id& ancestor) {
  cow_ptr<Commit> at = commit;
  while (at && !(at->GetId() == ancestor)) at = at->GetParent();
  return static_cast<bool>(at);
}

}  // namespace TalVcs::Kit
