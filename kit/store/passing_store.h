#pragma once

#include <kit/export.h>
#include <kit/store/gradual_removal.h>
#include <kit/store/head_watcher.h>
#include <kit/store/object_store.h>
#include <kit/store/opening_store.h>
#include <kit/store/repairable_store.h>
#include <kit/store/trimmable_store.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {

/// The operations of an object store, in the order of `IObjectStore`, and those of
/// `IRepairableStore`, `IHeadWatcher`, `IOpeningStore` and `IGradualRemoval`.
enum class StoreOperation {
  Missing,
  Read,
  ReadHistory,
  Sizes,
  Write,
  Heads,
  MoveHeads,
  List,
  RemoveUnmarked,
  Value,
  SetValue,
  Replace,
  WaitForHeads,
  ReadOpening,
  RemoveGradually,
};

/// The number of operations.
inline constexpr std::size_t kStoreOperations =
    static_cast<std::size_t>(StoreOperation::RemoveGradually) + 1;

/// Returns the operation's name, such as "MoveHeads".
TALVCS_KIT_API const char* ToString(StoreOperation operation) noexcept;

/// A call of a store, as the functions of a `PassingStore` see it. What it refers to is valid
/// during the call.
struct StoreCall {
  StoreOperation operation = StoreOperation::Missing;  ///< What is called.
  /// The number of the call; the first call of a store object has 1.
  std::uint64_t number = 0;
  /// The ids of `Missing`, `Read` and `Sizes`; the first commit of `ReadHistory`.
  std::span<const Id> ids = {};
  /// The objects of `Write` and `Replace`.
  std::span<const StoredObject> objects = {};
  /// The moves of `MoveHeads`.
  std::span<const HeadMove> moves = {};
  /// The name of a value, or of the one that `ReadOpening` asks for.
  std::string_view name = {};
  /// The number of ids, objects, moves or heads; for `ReadHistory`, the most commits to read.
  std::uint64_t count = 0;
  /// The bytes of packed forms: those of a `Write` or `Replace`; after a read, those that were
  /// passed on.
  std::uint64_t sizeBytes = 0;
};

/// A store that passes every call on to another store: the base of decorators.
///
/// A derived class overrides one or more of `Before`, `Found` and `After`, which see all calls, or
/// any operation of the store. By itself this class changes nothing.
///
/// The results of one call are those of the store below, and so are its rules for several store
/// objects. A passing store isn't copied. Threads: as the store below.
class TALVCS_KIT_API PassingStore : public IObjectStore,
                                    public IRepairableStore,
                                    public IHeadWatcher,
                                    public ITrimmableStore,
                                    public IOpeningStore,
                                    public IGradualRemoval {
 public:
  /// Passes calls on to `store`, which must not be null, and keeps it alive.
  explicit PassingStore(std::shared_ptr<IObjectStore> store) noexcept;
  /// Passes calls on to `store`, which must outlive this object.
  explicit PassingStore(IObjectStore& store) noexcept;
  PassingStore(const PassingStore&) = delete;
  PassingStore& operator=(const PassingStore&) = delete;
  ~PassingStore() override;

  Result<std::vector<Id>> Missing(std::span<const Id> ids) override;
  Status Read(std::span<const Id> ids, const ReadSink& sink) override;
  Status ReadHistory(const Id& id, std::uint64_t most, const ReadSink& sink) override;
  Result<std::vector<std::optional<std::uint64_t>>> Sizes(std::span<const Id> ids) override;
  Status Write(std::span<const StoredObject> objects) override;
  Result<std::vector<Head>> Heads() override;
  Status MoveHeads(std::span<const HeadMove> moves) override;
  Status List(const IdSink& sink) override;
  Result<RemovedObjects> RemoveUnmarked(const MarkObjects& mark) override;
  Result<std::optional<std::string>> Value(std::string_view name) override;
  Status SetValue(std::string_view name, std::optional<std::string_view> value) override;
  /// Fails with `Unsupported` if the store below isn't repairable.
  Status Replace(std::span<const StoredObject> objects) override;
  void Trim() noexcept override;
  /// Fails with `Unsupported` if the store below can't wait.
  Result<std::vector<Head>> WaitForHeads(std::span<const Head> seen,
                                         std::chrono::milliseconds timeout) override;
  /// Asks the store below once if that store has this interface, otherwise calls `Heads` and
  /// `Value`. A derived class that overrides these two need not override this one: they are called
  /// in either case, and the ones of this class then return what came with the one answer.
  Result<StoreOpening> ReadOpening(std::string_view branch, std::string_view valueName,
                                   std::string_view otherwise) override;
  /// Fails with `Unsupported` if the store below can't do it.
  Result<RemovedObjects> RemoveGradually(const MarkObjects& mark,
                                         std::chrono::milliseconds grace) override;

 protected:
  /// Called at the beginning of each call. If it fails, the store below isn't called, and the call
  /// fails with that error.
  virtual Status Before(const StoreCall& call);

  /// Called for each object that a read found or didn't find. Returns what is passed to the caller
  /// instead. After an error, nothing more of a `ReadHistory` is passed on, and a `ReadOpening`
  /// leaves the object out.
  virtual Result<Buffer> Found(const Id& id, Result<Buffer> packed);

  /// Called at the end of each call with its outcome, even if `Before` failed, but not if a
  /// callback threw. If it returns an error, the call fails with that error, although the store
  /// below may have done its work. A call that failed fails in any case.
  virtual Status After(const StoreCall& call, Status outcome);

 private:
  template <class Outcome, class Operation>
  TALVCS_KIT_NO_EXPORT Outcome Pass(StoreCall call, const Operation& operation);
  TALVCS_KIT_NO_EXPORT ReadSink SinkOf(const ReadSink& sink, StoreCall& call);
  TALVCS_KIT_NO_EXPORT Result<StoreOpening> ReadOpeningBelow(IOpeningStore& store, StoreCall& call,
                                                             std::string_view branch,
                                                             std::string_view otherwise);

  /// What `Heads` and `Value` return while an opening is read.
  struct Opened {
    const StoreOpening& opening;
    std::string_view valueName;
  };

  std::shared_ptr<IObjectStore> m_store;
  const Opened* m_opened = nullptr;
  std::uint64_t m_calls = 0;
};

}  // namespace TalVcs::Kit
