#pragma once

#include <kit/export.h>
#include <kit/store/object_store.h>

#include <vector>

namespace TalVcs::Kit {

/// A store that can write while the caller goes on. Stores that can do it implement this interface
/// beside `IObjectStore`; callers use the functions `BeginWrite`, `FinishWrites` and `DropWrites`.
///
/// A failure of what was begun stays: nothing more of it is written, and every other function of
/// the store fails in the same way until the caller calls `FinishWrites` or `DropWrites`. So a read
/// whose failure is of no interest hides nothing, and no head moves.
///
/// *For implementers.* All other functions of the store first wait for what was begun. The thread
/// that writes calls nothing of the host. A store that is destroyed or assigned to gives up what
/// was begun, as `DropWrites` does.
class TALVCS_KIT_API IBackgroundWriter {
 public:
  virtual ~IBackgroundWriter();

  /// Begins to write objects as `IObjectStore::Write` does, and may return before the store has
  /// them. What was begun first is written first. Fails if a write that was begun before has
  /// failed, and takes nothing then. Holds a few lists of objects at most, and waits for room. The
  /// buffers share their bytes with the caller, who may go on to use them.
  virtual Status BeginWrite(std::vector<StoredObject> objects) = 0;

  /// Waits until the store has all that was begun. Returns the first failure of a write that was
  /// begun, and forgets it: what is begun next is a new start.
  virtual Status FinishWrites() = 0;

  /// Gives up what was begun and isn't being written yet, waits for the list that is, and forgets a
  /// failure. Objects that were written stay in the store.
  virtual void DropWrites() noexcept = 0;

 protected:
  IBackgroundWriter() = default;
  IBackgroundWriter(const IBackgroundWriter&) = default;
  IBackgroundWriter& operator=(const IBackgroundWriter&) = default;
};

/// Calls `IBackgroundWriter::BeginWrite` of a store; without that interface, `Write`.
TALVCS_KIT_API Status BeginWrite(IObjectStore& store, std::vector<StoredObject> objects);

/// Calls `IBackgroundWriter::FinishWrites` of a store; without that interface, does nothing and
/// succeeds.
TALVCS_KIT_API Status FinishWrites(IObjectStore& store);

/// Calls `IBackgroundWriter::DropWrites` of a store; without that interface, does nothing.
TALVCS_KIT_API void DropWrites(IObjectStore& store) noexcept;

}  // namespace TalVcs::Kit
