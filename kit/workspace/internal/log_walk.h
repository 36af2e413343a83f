#pragma once

#include <kit/open/internal/id_map.h>
#include <kit/open/internal/reporter.h>
#include <kit/text/result.h>
#include <kit/workspace/internal/path_history.h>
#include <kit/workspace/internal/workspace_state.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <queue>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace TalVcs::Kit {

/// Walks one history, or several together: each version once, and before its parent unless clocks
/// were wrong by more than is allowed for; of those that may come next, the latest comes first.
///
/// A version must wait for one that follows it, even if that one is earlier, because a clock was
/// put back or is coarse. So of several histories the walk reads ahead: until what it has
/// not read is earlier than the next version by more than the error of clocks, or belongs to the
/// history of the next version itself. One history is read version by version. Of a single one,
/// nothing is remembered; of several, some 70 bytes a version, and two kilobytes for each that was
/// read ahead.
///
///     9 --- 7 --- 5    master, by times: 7 can't come before 6, which follows it
///     6 --- 7          topic
class LogWalk {
 public:
  /// `clockError` is the most by which a version may be later than one that follows it.
  /// `reporter` must outlive the walk.
  LogWalk(std::chrono::seconds clockError, Reporter& reporter)
      : m_clockError(clockError), m_reporter(&reporter) {}
  // Pointers of one walk lead to its own versions, which stay where they are when it is moved.
  LogWalk(const LogWalk&) = delete;
  LogWalk(LogWalk&&) = default;
  LogWalk& operator=(const LogWalk&) = delete;
  LogWalk& operator=(LogWalk&&) = default;
  ~LogWalk() = default;

  /// Adds a history; null adds none. All are added before the first step.
  void Add(const cow_ptr<Commit>& head);
  /// Returns the head of a walk along one history that is before its first step; null for others.
  cow_ptr<Commit> GetOnlyHead() const;
  /// Returns the next version, or null. Fails with `Cancelled`.
  Result<cow_ptr<Commit>> Next();

 private:
  struct Node {
    std::int64_t time = 0;
    std::uint64_t order = 0;  // in which versions were found
    cow_ptr<Commit> commit;
    Node* parent = nullptr;
    Node* ancestor = nullptr;    // a version on the way to the earliest one that was read
    std::uint64_t waitsFor = 0;  // followers that were found and not passed
    bool hasReadParent = false;
    bool isReady = false;  // is in the queue
    bool isPassed = false;
  };
  struct IsLater {
    bool operator()(const Node* a, const Node* b) const noexcept {
      return a->time != b->time ? a->time > b->time : a->order < b->order;
    }
  };
  struct IsEarlier {
    bool operator()(const Node* a, const Node* b) const noexcept { return IsLater()(b, a); }
  };

  Node* Enter(const cow_ptr<Commit>& commit);
  void MakeReady(Node& node);
  void ReadParent(Node& node);
  void ReadAhead();
  void Forget(const Node& node);
  Node* Best();
  bool MayBeFollowed(Node& node);
  static Node* EarliestOf(Node& node) noexcept;

  std::chrono::seconds m_clockError;
  Reporter* m_reporter;
  /// Those that were not passed, and the last one.
  std::unordered_map<Id, Node> m_nodes;
  IdMap m_passed;  // if there are several histories
  std::uint64_t m_heads = 0;
  std::uint64_t m_order = 0;
  /// Those that wait for nothing and were not passed, and some that wait again.
  std::priority_queue<Node*, std::vector<Node*>, IsEarlier> m_ready;
  /// Versions whose parent was not read yet, except those whose parent can't be read.
  std::set<Node*, IsLater> m_ends;
  Node* m_last = nullptr;
};

/// Returns true if a version fits the wishes other than the branch.
class LogFilter {
 public:
  /// `path` is the one of the options, as the core takes it.
  LogFilter(const LogOptions& options, WideString path)
      : m_options(options), m_path(std::move(path)) {}

  bool Takes(const Commit& commit);
  /// Returns the path if nothing else matters; else an empty text.
  std::string GetOnlyPath() const;

 private:
  bool ChangesPath(const Commit& commit);

  const LogOptions& m_options;
  WideString m_path;
  cow_ptr<Tree> m_lastRoot;       // of the parent of the last version
  std::optional<Id> m_lastFound;  // what it has at the path
};

/// Walks the versions that fit a filter, and frees what was read of those that were passed. For one
/// history and only a path, it reads stored forms until one can't be read.
class FilteredLog {
 public:
  /// `state` and `reporter` must outlive the log. The reporter counts an item for each version that
  /// fits, and `skippedItems` for each other one.
  FilteredLog(WorkspaceState& state, LogWalk walk, LogFilter filter, Reporter& reporter,
              std::uint64_t skippedItems);

  /// Returns the next version, or null. Fails with `Cancelled`.
  Result<cow_ptr<Commit>> Next();

 private:
  Result<cow_ptr<Commit>> NextOfPath();
  Status LeavePath();

  WorkspaceState& m_state;
  LogWalk m_walk;
  LogFilter m_filter;
  Reporter& m_reporter;
  std::uint64_t m_skippedItems;
  std::optional<PathHistory> m_path;  // none where objects are walked
};

}  // namespace TalVcs::Kit
