#pragma once

#include <kit/export.h>
#include <kit/store/object_store.h>

#include <vector>

namespace TalVcs::Kit {

/// A store that can write while the caller goes on. Stores that can do it implement this interface
/// beside `IObjectStore`; callers use the functions `BeginWrite` and `FinishWrites`.
class TALVCS_KIT_API IBackgroundWriter {
 public:
  virtual ~IBackgroundWriter();

  /// Begins to write objects as `IObjectStore::Write` does, and may return before the store has
  /// them.
  ///
  /// *For callers.* What was begun first is written first. After a failure nothing more of what was
  /// begun is written. The next call of this function, of `FinishWrites` or of another function of
  /// the store fails in the same way, once; so a head never moves after such a failure.
  ///
  /// *For implementers.* All other functions of the store wait first for what was begun. Hold a few
  /// lists of objects at the most, and wait here if there are more. The buffers share their bytes
  /// with the caller, who goes on to use them.
  virtual Status BeginWrite(std::vector<StoredObject> objects) = 0;

  /// Waits until the store has all that was begun.
  virtual Status FinishWrites() = 0;

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

}  // namespace TalVcs::Kit
