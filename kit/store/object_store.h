#pragma once

#include <kit/export.h>
#include <kit/text/result.h>
#include <talvcs/foundation/names.h>
#include <talvcs/objects/id.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {

/// An object as it is stored: its id and its packed form, which the buffer shares.
struct StoredObject {
  Id id;          ///< The SHA-256 of `packed`.
  Buffer packed;  ///< The packed form.
  /// A hint: the previous version of the object at the same path; for a commit, its parent. A store
  /// may keep only the difference from it. Empty if there is none or it isn't known; the store need
  /// not have it.
  Id previous = {};
};

/// A wish to move a branch. An empty `expected` means that the branch must not exist; an empty
/// `desired` removes it.
struct HeadMove {
  std::string name;  ///< The name of the branch.
  Id expected;       ///< Where the caller last saw the head; empty if there must be no such branch.
  Id desired;        ///< The new head; empty to remove the branch.
};

/// Takes what a read found. The error is `NotFound` for an object that the store lacks, `Damaged`
/// for bytes that the store itself knows to be wrong, `Unavailable` for bytes that can't be read.
using ReadSink = std::function<void(const Id& id, Result<Buffer> packed)>;

/// Takes ids in batches. Returning false ends the listing.
using IdSink = std::function<bool(std::span<const Id> ids)>;

/// Returns the ids to keep, given the heads of the store.
using MarkObjects = std::function<Result<std::vector<Id>>(std::span<const Head> heads)>;

/// Returns true for 64 lower-case hexadecimal digits, which every id of an object has.
TALVCS_KIT_API bool IsObjectId(const Id& id) noexcept;

/// What a removal took away.
struct RemovedObjects {
  std::uint64_t count = 0;      ///< The number of objects.
  std::uint64_t sizeBytes = 0;  ///< The bytes of their packed forms.
};

/// A place where histories live: objects by id, branches with their heads, small named values.
///
/// *For callers.* An object is written before what names it, and a head moves after everything
/// below it was written: then every reader of a head can read all of it. Names of branches are
/// UTF-8, as `ToUtf8` makes it; any text is a name, the empty one too. All sizes are of packed
/// forms. A callback doesn't call the store, except that a `MarkObjects` may read from it.
///
/// *For implementers.* Each operation is complete when it returns. It throws nothing but what a
/// callback throws and what running out of memory throws. A failed operation leaves the store as it
/// was, except for objects that `Write` had already put. The store doesn't look into packed forms
/// and doesn't check that they fit their ids. New needs come as a second interface, never as a new
/// virtual function.
///
/// *Ids.* An id that isn't an object's (`IsObjectId`) is missing from every store, and `Write` and
/// `MoveHeads` fail with `BadName` for it. So a store can make file names of ids.
///
/// Threads: a store object belongs to one thread at a time. Several of them, in several processes,
/// may work on one store if its documents say so.
class TALVCS_KIT_API IObjectStore {
 public:
  virtual ~IObjectStore();

  /// Returns those of `ids` that the store lacks, in their order; an id that comes twice and is
  /// missing is returned twice. Cost: a look-up an id.
  virtual Result<std::vector<Id>> Missing(std::span<const Id> ids) = 0;

  /// Passes each of `ids` to `sink` once, in any order, with its packed form or an error of its
  /// own. An id that comes twice may be passed once or twice. An error as the result means that the
  /// rest wasn't passed.
  virtual Status Read(std::span<const Id> ids, const ReadSink& sink) = 0;

  /// Passes the commit `id` and up to `most - 1` of its ancestors to `sink`, newest first. Ends
  /// early at the end of the history, and after the first that has an error or isn't a commit. A
  /// store that has no better way calls `ReadHistoryByParents`.
  virtual Status ReadHistory(const Id& id, std::uint64_t most, const ReadSink& sink) = 0;

  /// Returns the sizes in bytes of the packed forms, in the order of `ids`; none for what is
  /// missing.
  virtual Result<std::vector<std::optional<std::uint64_t>>> Sizes(std::span<const Id> ids) = 0;

  /// Puts the objects into the store; one that is there already stays as it is. They are durable
  /// before a later `MoveHeads` moves any head. What was written and is named by no head may be
  /// removed by a later `RemoveUnmarked`. May fail with `Busy` where `MoveHeads` would, and begins
  /// a new save then as well.
  virtual Status Write(std::span<const StoredObject> objects) = 0;

  /// Returns all branches, sorted by the bytes of their names.
  virtual Result<std::vector<Head>> Heads() = 0;

  /// Moves all of the branches, or none, and is durable when it returns.
  ///
  /// Fails with `Conflict` if any branch isn't where it was expected. `Error::heads` then has the
  /// actual head of each branch in `moves`, in their order, with an empty id if there is no such
  /// branch. Fails with `BadName` if a branch comes twice.
  ///
  /// Fails with `Busy` if any store object has removed objects by `RemoveUnmarked` since this one's
  /// first `Missing` or `Write` after its last successful `MoveHeads`: what was there then may be
  /// gone. After that the next `Missing` or `Write` begins a new save.
  ///
  /// `Unknown` means that it may have happened: read the heads.
  virtual Status MoveHeads(std::span<const HeadMove> moves) = 0;

  /// Passes the ids of all objects to `sink`, in any order.
  virtual Status List(const IdSink& sink) = 0;

  /// Calls `mark` with the heads, and removes every object whose id isn't among the result.
  ///
  /// No other store object can move a head until it returns: it fails with `Busy`. Store objects
  /// that have read the heads before can read what those reach as long as the store's documents
  /// promise. Fails with the error of `mark`, and removes nothing then. `mark` may read from this
  /// store object. A removal that ends midway leaves no object that lacks what it names.
  virtual Result<RemovedObjects> RemoveUnmarked(const MarkObjects& mark) = 0;

  /// Returns the value under `name`, or none. Values are small texts of the host, such as the name
  /// of the current branch; they aren't part of any history.
  virtual Result<std::optional<std::string>> Value(std::string_view name) = 0;
  /// Sets, or with none removes, the value under `name`; durable when it returns.
  virtual Status SetValue(std::string_view name, std::optional<std::string_view> value) = 0;

 protected:
  IObjectStore() = default;
  IObjectStore(const IObjectStore&) = default;
  IObjectStore& operator=(const IObjectStore&) = default;
};

}  // namespace TalVcs::Kit
