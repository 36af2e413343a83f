#pragma once

#include <kit/export.h>
#include <kit/store/object_store.h>
#include <kit/text/result.h>

#include <chrono>

namespace TalVcs::Kit {

/// A store from which unused objects are removed while others save and read. Stores that can do it
/// implement this interface beside `IObjectStore`; callers use `CleanUpGradually`.
class TALVCS_KIT_API IGradualRemoval {
 public:
  virtual ~IGradualRemoval();

  /// Condemns all objects that `mark` doesn't return, then removes those that were condemned more
  /// than `grace` ago, most of them by earlier calls.
  ///
  /// *For callers.* A condemned object can be read until it is removed, but is missing for
  /// `Missing`, and becomes an ordinary one when it is written again. So a reader of a head
  /// can read what it reaches for `grace`, at least. `mark` is called with the heads, and again
  /// with those that have moved meanwhile; it may then leave out ids that it has returned before.
  /// It may read from this store object.
  ///
  /// *For implementers.* A save of another store object goes on: a `MoveHeads` succeeds if all that
  /// the save has written is still there and nothing that it skipped was condemned, and otherwise
  /// fails with `Busy`, as after `RemoveUnmarked`. After a failure some objects may be condemned or
  /// removed, and no head lacks one. A store over another one fails with `Unsupported` if the store
  /// below can't do it.
  virtual Result<RemovedObjects> RemoveGradually(const MarkObjects& mark,
                                                 std::chrono::milliseconds grace) = 0;

 protected:
  IGradualRemoval() = default;
  IGradualRemoval(const IGradualRemoval&) = default;
  IGradualRemoval& operator=(const IGradualRemoval&) = default;
};

/// Calls `RemoveGradually` of a store. Fails with `Unsupported` if it has none.
TALVCS_KIT_API Result<RemovedObjects> RemoveGradually(IObjectStore& store, const MarkObjects& mark,
                                                      std::chrono::milliseconds grace);

}  // namespace TalVcs::Kit
