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
  Id id;
  Buffer packed;
};

/// A wish to move a branch. An empty `expected` means that the branch must not exist; an empty
/// `desired` removes it.
struct HeadMove {
  std::string name;
  Id expected;
  Id desired;
};

/// Takes what a read found. The error is `NotFound` for an object that the store lacks, `Damaged`
/// for bytes that the store itself knows to be wrong, `Unavailable` for bytes that can't be read.
using ReadSink = std::function<void(const Id& id, Result<Buffer> packed)>;

/// Takes ids in batches. Returning false ends the listing.
using IdSink = std::function<bool(std::span<const Id> ids)>;

/// Returns the ids to keep, given the heads of the store.
using MarkObjects = std::function<Result<std::vector<Id>>(std::span<const Head> heads)>;

/// What a removal took away.
struct RemovedObjects {
  std::uint64_t count = 0;
  std::uint64_t sizeBytes = 0;
};

/// A place where histories live: objects by id, branches with their heads, small named values.
///
/// *For callers.* An object is written before what names it, and a head moves after everything
/// below it was written: then whoever sees a head can read all of it. Names of branches are UTF-8,
/// as `ToUtf8` makes it. All sizes are of packed forms.
///
/// *For implementers.* Each operation is complete when it returns; none throws but for want of
/// memory or what a callback throws. A failed operation leaves the store as it was, but for objects
/// that `Write` had already put. The store doesn't look into packed forms and isn't asked to check
/// that they fit their ids. New needs come as a second interface, never as a new virtual function.
///
/// Threads: a store object belongs to one thread at a time. Several of them, in several processes,
/// may work on one store if its documents say so.
class TALVCS_KIT_API IObjectStore {
 public:
  virtual ~IObjectStore();

  /// Returns those of `ids` that the store lacks, in their order. Cost: a look-up an id.
  virtual Result<std::vector<Id>> Missing(std::span<const Id> ids) = 0;

  /// Passes each of `ids` to `sink` once, in any order, with its packed form or an error of its
  /// own. An error as the result means that the rest wasn't passed.
  virtual Status Read(std::span<const Id> ids, const ReadSink& sink) = 0;

  /// Passes the commit `id` and up to `most - 1` of its ancestors to `sink`, newest first. Ends
  /// early at the end of the history, and after the first that has an error.
  virtual Status ReadHistory(const Id& id, std::uint64_t most, const ReadSink& sink) = 0;

  /// Returns the sizes in bytes of the packed forms, in the order of `ids`; none for what is
  /// missing.
  virtual Result<std::vector<std::optional<std::uint64_t>>> Sizes(std::span<const Id> ids) = 0;

  /// Puts the objects into the store; one that is there already stays as it is. They are durable
  /// before a later `MoveHeads` moves any head. What was written and is named by no head may be
  /// removed by a later `RemoveUnmarked`.
  virtual Status Write(std::span<const StoredObject> objects) = 0;

  /// Returns all branches, sorted by name.
  virtual Result<std::vector<Head>> Heads() = 0;

  /// Moves all of the branches, or none, and is durable when it returns.
  ///
  /// Fails with `Conflict`, and the actual heads in the error, if any branch isn't where it was
  /// expected. Fails with `Busy` if `RemoveUnmarked` ran since this object's first `Missing` or
  /// `Write` after its last `MoveHeads`: what was there then may be gone, so look and write again.
  /// `Unknown` means that it may have happened: read the heads.
  virtual Status MoveHeads(std::span<const HeadMove> moves) = 0;

  /// Passes the ids of all objects to `sink`, in any order.
  virtual Status List(const IdSink& sink) = 0;

  /// Calls `mark` with the heads, and removes every object whose id isn't among the result.
  ///
  /// Nobody else moves a head between the two; readers of other store objects that have read the
  /// heads before keep what those reach as long as the store's documents promise. An error of
  /// `mark` ends it with nothing removed.
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
