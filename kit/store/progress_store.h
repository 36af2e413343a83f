#pragma once

#include <kit/export.h>
#include <kit/store/passing_store.h>
#include <kit/text/progress.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>

namespace TalVcs::Kit {

/// Options of a `ProgressStore`.
struct ProgressStoreOptions {
  /// Called with the work done so far; false cancels. Empty: no progress, never cancelled.
  Progress progress = {};
  /// The clock; empty means the system's.
  std::function<std::chrono::steady_clock::time_point()> now = {};
};

/// Shows how much a store has done, and cancels its calls, under code that has no progress of its
/// own.
///
/// Each operation is a phase with the operation's name, which goes on at its next call: `done`
/// counts ids, objects, listed ids or moves of all its calls since the store object was made, and
/// `sizeBytes` the bytes of packed forms. The total is unknown. The callback is called at the first
/// call of each operation, and then before further calls, at most fifty times a second. A store
/// doesn't know which call is the last, so the work of the last calls may not be shown.
///
/// When the callback returns false, the call that is about to begin fails with `Cancelled`, and the
/// store below isn't called. Code that reads objects on demand, as a repository does, reports them
/// as `Unavailable` then: a host that cancels remembers that it did. Long reads and writes are
/// passed on in batches of at most 256 objects or 1 MiB, and can be cancelled after each; objects
/// that were written stay. A listing ends at its next batch. Nothing else is cancelled once it has
/// begun, so a move of heads takes place or not.
class TALVCS_KIT_API ProgressStore final : public PassingStore {
 public:
  /// Passes calls on to `store`, which must not be null, and keeps it alive.
  ProgressStore(std::shared_ptr<IObjectStore> store, ProgressStoreOptions options);
  /// Passes calls on to `store`, which must outlive this object.
  ProgressStore(IObjectStore& store, ProgressStoreOptions options);
  ~ProgressStore() override;

  Status Read(std::span<const Id> ids, const ReadSink& sink) override;
  Status Write(std::span<const StoredObject> objects) override;
  Status List(const IdSink& sink) override;

 protected:
  Status Before(const StoreCall& call) override;
  Status After(const StoreCall& call, Status outcome) override;

 private:
  struct Phase {
    std::uint64_t done = 0;
    std::uint64_t sizeBytes = 0;
    bool hasBegun = false;
  };

  TALVCS_KIT_NO_EXPORT Phase& PhaseOf(StoreOperation operation);
  TALVCS_KIT_NO_EXPORT bool Show(StoreOperation operation);

  ProgressStoreOptions m_options;
  std::array<Phase, kStoreOperations> m_phases;
  std::chrono::steady_clock::time_point m_shown;
};

}  // namespace TalVcs::Kit
