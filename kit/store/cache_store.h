#pragma once

#include <kit/export.h>
#include <kit/store/gradual_removal.h>
#include <kit/store/head_watcher.h>
#include <kit/store/object_store.h>
#include <kit/store/opening_store.h>
#include <kit/store/repairable_store.h>
#include <kit/store/trimmable_store.h>

#include <chrono>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace TalVcs::Kit {

/// Options of a `CacheStore`.
struct CacheOptions {
  /// The most bytes of packed forms that the fast store keeps. An object of more than a quarter of
  /// this isn't cached.
  std::uint64_t mostBytes = std::uint64_t{256} << 20;
  /// Keeps heads and values in the fast store too, and returns them as long as the slow one can't
  /// be reached. So a document that was open before opens offline.
  bool keepsHeads = false;
};

/// Keeps copies of the objects of a slow store in a fast one, such as those of a server in a
/// folder.
///
/// *Reading* asks the fast store first and the slow one for the rest, which the fast store then
/// keeps. Bytes from the fast store are used only if they fit their id. *Writing* goes to the slow
/// store and, after its success, to the fast one. When the fast store has more than
/// `CacheOptions::mostBytes`, the least recently used objects are removed, down to three quarters
/// of that.
///
/// *Heads, values, `Missing` and `List`* always come from the slow store, so that they are never
/// stale and a save never relies on a copy. An object that another program has removed may still be
/// read from the cache.
///
/// *Offline.* When the slow store fails with `Unavailable`, objects in the cache are read as
/// before. Heads and values are what they were when they were read last, if
/// `CacheOptions::keepsHeads` asks for that. Everything else, with heads and values that were never
/// read or that the fast store can't return, fails with the error of the slow store, and nothing is
/// saved. `IsOffline` says so, and `FindUncached` what can't be read.
///
/// *The fast store* holds copies alone, belongs to one cache store at a time, and has no heads. Its
/// failures are never returned: after the first, it isn't used any more, and `GetFastStatus` has
/// the failure. To use it again, give it to a new cache store, which lists what it holds. A
/// `MemoryObjectStore` or a `DirectoryObjectStore` with `durable` off fits. A store that keeps what
/// is written in memory until a head moves, as a `SqliteStore` does, forgets it with the process.
/// The fast store isn't a place for secrets: over an `EncryptedStore`, it holds plain copies.
///
/// Cost: the first call that reads lists the fast store; memory some 200 bytes an object in it.
/// Threads: as the two stores.
class TALVCS_KIT_API CacheStore final : public IObjectStore,
                                        public IRepairableStore,
                                        public IHeadWatcher,
                                        public ITrimmableStore,
                                        public IOpeningStore,
                                        public IGradualRemoval {
 public:
  /// Keeps the stores alive; neither may be null, and they must be two stores.
  CacheStore(std::shared_ptr<IObjectStore> fast, std::shared_ptr<IObjectStore> slow,
             CacheOptions options = {}) noexcept;
  CacheStore(const CacheStore&) = delete;
  CacheStore& operator=(const CacheStore&) = delete;
  ~CacheStore() override;

  /// True if the last call of the slow store failed with `Unavailable`. A read from the cache alone
  /// doesn't call the slow store and doesn't change this.
  bool IsOffline() const noexcept { return m_isOffline; }
  /// Returns those of `ids` that the fast store lacks, so that they can't be read offline.
  std::vector<Id> FindUncached(std::span<const Id> ids);
  /// Returns why the fast store isn't used; success while it is.
  const Status& GetFastStatus() const noexcept { return m_fastStatus; }
  /// Returns the bytes of packed forms in the fast store, as far as this object knows.
  std::uint64_t GetCachedBytes() const noexcept { return m_cachedBytes; }

  Result<std::vector<Id>> Missing(std::span<const Id> ids) override;
  Status Read(std::span<const Id> ids, const ReadSink& sink) override;
  Status ReadHistory(const Id& id, std::uint64_t most, const ReadSink& sink) override;
  Result<std::vector<std::optional<std::uint64_t>>> Sizes(std::span<const Id> ids) override;
  Status Write(std::span<const StoredObject> objects) override;
  Result<std::vector<Head>> Heads() override;
  Status MoveHeads(std::span<const HeadMove> moves) override;
  Status List(const IdSink& sink) override;
  /// Removes from the slow store, and from the fast one what the slow one has removed.
  Result<RemovedObjects> RemoveUnmarked(const MarkObjects& mark) override;
  Result<std::optional<std::string>> Value(std::string_view name) override;
  Status SetValue(std::string_view name, std::optional<std::string_view> value) override;
  /// Replaces objects of the slow store; the fast one checks what it has by itself.
  Status Replace(std::span<const StoredObject> objects) override;
  void Trim() noexcept override;
  /// Waits for heads of the slow store. Fails with `Unsupported` if it can't wait.
  Result<std::vector<Head>> WaitForHeads(std::span<const Head> seen,
                                         std::chrono::milliseconds timeout) override;
  /// Reads the opening of the slow store, and keeps what `Heads`, `Value` and `Read` would keep.
  Result<StoreOpening> ReadOpening(std::string_view branch, std::string_view valueName,
                                   std::string_view otherwise) override;
  /// Removes from the slow store. Fails with `Unsupported` if it can't do it.
  Result<RemovedObjects> RemoveGradually(const MarkObjects& mark,
                                         std::chrono::milliseconds grace) override;

 private:
  struct Entry {
    std::uint64_t sizeBytes;
    std::list<Id>::iterator use;
  };

  template <class Outcome>
  TALVCS_KIT_NO_EXPORT Outcome Slow(Outcome outcome);
  TALVCS_KIT_NO_EXPORT bool UsesFast();
  TALVCS_KIT_NO_EXPORT void Enter(const Id& id, std::uint64_t sizeBytes);
  TALVCS_KIT_NO_EXPORT void Drop(const Id& id);
  TALVCS_KIT_NO_EXPORT std::vector<Id> ReadCached(std::span<const Id> ids, const ReadSink& sink);
  TALVCS_KIT_NO_EXPORT void Keep(std::span<const StoredObject> objects);
  TALVCS_KIT_NO_EXPORT void KeepOnly(const std::vector<Id>& ids);
  TALVCS_KIT_NO_EXPORT bool KeepsHeads() { return m_options.keepsHeads && UsesFast(); }
  TALVCS_KIT_NO_EXPORT void KeepValue(std::string_view name,
                                      const std::optional<std::string>& value);
  TALVCS_KIT_NO_EXPORT std::optional<std::optional<std::string>> KeptValue(std::string_view name);
  TALVCS_KIT_NO_EXPORT void KeepText(const std::string& key,
                                     const std::optional<std::string>& text);
  TALVCS_KIT_NO_EXPORT std::optional<std::string> KeptText(const std::string& key);
  TALVCS_KIT_NO_EXPORT void KeepHeads(const std::vector<Head>& heads);
  TALVCS_KIT_NO_EXPORT std::optional<std::vector<Head>> KeptHeads();

  std::shared_ptr<IObjectStore> m_fast;
  std::shared_ptr<IObjectStore> m_slow;
  CacheOptions m_options;
  /// The cached objects, and their ids with the one that was used last at the front.
  std::unordered_map<Id, Entry> m_entries;
  std::list<Id> m_uses;
  std::uint64_t m_cachedBytes = 0;
  Status m_fastStatus;
  bool m_isIndexed = false;
  bool m_isOffline = false;
};

}  // namespace TalVcs::Kit
