#pragma once

#include <kit/store/object_store.h>
#include <talvcs/persistence/packed_object.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Kit {

/// Why an object of a store can't be read, as `Damage` has it.
struct ReadProblem {
  ErrorCode code;
  std::string reason;
};

/// Returns what is wrong with what a store passed for `id`, or nothing if it is that object, of
/// that type, in the form that the library writes.
std::optional<ReadProblem> CheckRecord(const Id& id, ObjectType type, const Result<Buffer>& packed);

/// Returns the same for an object of any type.
std::optional<ReadProblem> CheckRecord(const Id& id, const Result<Buffer>& packed);

/// Returns the problem of an object that a store lacks.
ReadProblem MissingObject();

/// Returns the error of an object that can't be read from a store that has to have it.
Error UnreadableObject(const Id& id, const ReadProblem& problem);

/// Takes the object at an index of the ids that were asked for. An error ends the reading.
using TakeRecord = std::function<Status(std::size_t index, Result<Buffer> packed)>;

/// Reads objects, of which no id comes twice, and passes each to `take` once; one that the store
/// did not pass as `Unavailable`.
Status ReadEach(IObjectStore& store, std::span<const Id> ids, const TakeRecord& take);

/// A commit as a store has it. With a problem, it has an id and nothing else.
struct CommitRecord {
  Id id;
  Buffer packed;
  Id root;    // empty without a tree
  Id parent;  // empty without a parent
  std::optional<ReadProblem> problem;
};

/// Reads a history, newest first, in windows of 1, 2, 4 and so on commits.
class CommitReader {
 public:
  /// Begins at `head`, which may be empty. `store` must outlive the reader.
  CommitReader(IObjectStore& store, Id head) : m_store(store), m_next(std::move(head)) {}

  /// True after the first commit of the history, and after one that has a problem.
  bool AtEnd() const noexcept { return m_next.View().IsEmpty(); }
  /// Reads the next window, of at least one commit. Only the last one may have a problem.
  Result<std::vector<CommitRecord>> Next();

 private:
  IObjectStore& m_store;
  Id m_next;
  std::uint64_t m_window = 1;
};

/// Returns true if `ancestor` is `head` or in its history. A store that lacks `ancestor` needs no
/// further look. Fails with the error of `UnreadableObject` if a commit before it can't be read.
Result<bool> IsAncestor(IObjectStore& store, const Id& ancestor, const Id& head);

}  // namespace TalVcs::Kit
