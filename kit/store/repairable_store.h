#pragma once

#include <kit/export.h>
#include <kit/store/object_store.h>

#include <span>

namespace TalVcs::Kit {

/// A store in which the bytes of an object can be replaced. Stores that can do it implement this
/// interface beside `IObjectStore`; callers find it by a `dynamic_cast`,
/// or know it.
///
/// It is for repairs alone: `Write` leaves an object as it is, also one that is damaged.
class TALVCS_KIT_API IRepairableStore {
 public:
  virtual ~IRepairableStore();

  /// Puts the objects into the store, each in place of what the store has under its id, and is
  /// durable when it returns. Of two objects of one id, the store keeps either.
  ///
  /// *For callers.* Each packed form must have the SHA-256 that is its id: the store doesn't check
  /// it. *For implementers.* A reader of another store object finds the former bytes or the new
  /// ones, never a part. Heads, values and other objects stay as they are. It isn't a removal: a
  /// save of another store object goes on. After a failure some of the objects may be replaced.
  ///
  /// Fails with `BadName` for an id that isn't an object's, and then replaces nothing.
  virtual Status Replace(std::span<const StoredObject> objects) = 0;

 protected:
  IRepairableStore() = default;
  IRepairableStore(const IRepairableStore&) = default;
  IRepairableStore& operator=(const IRepairableStore&) = default;
};

}  // namespace TalVcs::Kit
