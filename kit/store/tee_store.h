#pragma once

#include <kit/export.h>
#include <kit/store/head_watcher.h>
#include <kit/store/object_store.h>
#include <kit/store/opening_store.h>
#include <kit/store/repairable_store.h>
#include <kit/store/trimmable_store.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {

/// Keeps a history in two stores, of which the second may fail: a copy on another disk or a server.
///
/// *Results are those of the first store.* Each change goes to the first store, and after its
/// success to the second. A failure of the first is returned, and the second isn't changed. A
/// failure of the second is never returned: the tee leaves the second alone from then on, and
/// `GetSecondStatus` has the failure.
///
/// *Heads.* `Heads` and `Value` ask the first store alone. `MoveHeads` moves heads of the second
/// only if it had the same branches at the same heads as the first until then; otherwise the second
/// has fallen behind, which ends its part with `Conflict`. So the second is the same as the first,
/// or an earlier state of it that is whole: a head never moves there before everything below it was
/// written, whatever fails. After a kill between the two moves, the next `MoveHeads` finds the
/// second behind. If the first doesn't know whether its heads moved (`Unknown`), the second is left
/// alone as well. Cost of a move: the heads of both are read once.
///
/// *Reading.* If the first can't return an object, the second is asked for it, even if it has
/// fallen behind; the error of the first is returned if the second can't return it either. The
/// caller compares ids, as with any store. `Missing` returns what either store lacks. `Sizes` and
/// `List` are the first's.
///
/// *The second comes back* in two steps; a history of any size costs what the second lacks:
///
///     Copy(first, second, {.replaceHeads = true}).value();
///     tee.Rejoin().value();
///
/// Values aren't copied by this; set them again. If the first store is lost, work with the second
/// alone, and copy it into a new first store.
///
/// Other programs may use the same stores by tees of their own. Threads: as the two stores.
class TALVCS_KIT_API TeeStore final : public IObjectStore,
                                      public IRepairableStore,
                                      public IHeadWatcher,
                                      public ITrimmableStore,
                                      public IOpeningStore {
 public:
  /// Keeps the stores alive; neither may be null, and they must be two stores.
  TeeStore(std::shared_ptr<IObjectStore> first, std::shared_ptr<IObjectStore> second) noexcept;
  TeeStore(const TeeStore&) = delete;
  TeeStore& operator=(const TeeStore&) = delete;
  ~TeeStore() override;

  /// Returns why the second store is left alone; success while it takes part.
  const Status& GetSecondStatus() const noexcept { return m_secondStatus; }

  /// Lets the second store take part again, after it was brought up to the heads of the first.
  /// Branches of the second that the first lacks are removed. Call it between two saves. Fails with
  /// `Conflict` if another head differs, or as either store fails; the second is left alone then.
  Status Rejoin();

  Result<std::vector<Id>> Missing(std::span<const Id> ids) override;
  Status Read(std::span<const Id> ids, const ReadSink& sink) override;
  Status ReadHistory(const Id& id, std::uint64_t most, const ReadSink& sink) override;
  Result<std::vector<std::optional<std::uint64_t>>> Sizes(std::span<const Id> ids) override;
  Status Write(std::span<const StoredObject> objects) override;
  Result<std::vector<Head>> Heads() override;
  Status MoveHeads(std::span<const HeadMove> moves) override;
  Status List(const IdSink& sink) override;
  /// Removes from both stores what isn't marked. If the second has other heads than the first, or
  /// fails, nothing or less is removed there, and it is left alone. Returns what was removed from
  /// the first.
  Result<RemovedObjects> RemoveUnmarked(const MarkObjects& mark) override;
  Result<std::optional<std::string>> Value(std::string_view name) override;
  Status SetValue(std::string_view name, std::optional<std::string_view> value) override;
  /// Replaces objects of the first store alone.
  Status Replace(std::span<const StoredObject> objects) override;
  void Trim() noexcept override;
  /// Waits for heads of the first store. Fails with `Unsupported` if it can't wait.
  Result<std::vector<Head>> WaitForHeads(std::span<const Head> seen,
                                         std::chrono::milliseconds timeout) override;
  /// Reads the opening of the first store.
  Result<StoreOpening> ReadOpening(std::string_view branch, std::string_view valueName,
                                   std::string_view otherwise) override;

 private:
  TALVCS_KIT_NO_EXPORT bool SecondTakesPart() const noexcept { return m_secondStatus.ok(); }
  TALVCS_KIT_NO_EXPORT Status MoveSecond(std::span<const HeadMove> moves);
  TALVCS_KIT_NO_EXPORT Status CompareSecond(std::span<const Head> heads);

  std::shared_ptr<IObjectStore> m_first;
  std::shared_ptr<IObjectStore> m_second;
  Status m_secondStatus;
};

}  // namespace TalVcs::Kit
