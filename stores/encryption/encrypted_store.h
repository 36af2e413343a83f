#pragma once

#include <kit/store/head_watcher.h>
#include <kit/store/object_store.h>
#include <kit/store/opening_store.h>
#include <kit/store/repairable_store.h>
#include <kit/store/trimmable_store.h>
#include <stores/encryption/export.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {
namespace Encryption {
class Sealer;
}

/// What it costs to try a password. Each opening of the store costs the same; the values are stored
/// with it.
struct PasswordCost {
  /// The memory that a try needs, in bytes: at least 8 KiB, rounded down to whole KiB.
  std::uint64_t memoryBytes = std::uint64_t{64} << 20;
  /// How often a try goes over the memory, at least once.
  std::uint32_t passes = 3;
};

/// Encrypts what another store holds: contents, ids, names of branches, values and their names.
///
/// The store below, its owner and everyone who reads it see neither contents nor names, and can't
/// change or exchange them without the next read failing with `Damaged`. They do see how many
/// objects, branches and values there are, their sizes after compression, and when each is used;
/// and they can put back an earlier state of the whole store or of single branches.
/// docs/encryption.md has the whole list, docs/formats.md the bytes.
///
/// Objects, branches and values are encrypted by XChaCha20-Poly1305 (libsodium) under keys that
/// come from one random key, which the store has encrypted under the password (Argon2id). So a
/// password is changed in an instant. Objects are compressed before. There is no way to read a
/// store without its password.
///
/// *The store below* holds nothing else, and is used by encrypted stores alone, by any number with
/// the password. Its rules for several store objects, failures and durability hold for this one,
/// too. Tools that look into objects, such as `Copy` and `Verify`, work on this store and not on
/// the one below. One that compares bytes with ids, such as `ChecksumStore` or `CacheStore`,
/// can't be below.
///
/// *Errors* are those of the store below, and: `Damaged` for what was changed or belongs elsewhere,
/// per object in reads; `Denied` for another password. Texts of errors never have a key or
/// password; those of the store below have encrypted names.
///
/// *Cost* beside that of the store below: some 65 bytes an object; encryption and decryption at
/// hundreds of megabytes a second; a few microseconds an id. `Sizes` reads the objects, and
/// `RemoveUnmarked` reads those that it removes, because their sizes are encrypted. `ReadHistory`
/// is one read a commit. Keys are wiped from memory at the end; contents that were decrypted are
/// not.
///
/// A moved-from store may only be assigned to or destroyed. Threads: as the store below.
class TALVCS_ENCRYPTION_API EncryptedStore final : public IObjectStore,
                                                   public IRepairableStore,
                                                   public IHeadWatcher,
                                                   public ITrimmableStore,
                                                   public IOpeningStore {
 public:
  /// The most that opening a store may cost.
  static constexpr PasswordCost kMostCost{std::uint64_t{1} << 30, 16};

  /// Makes `store`, which must be empty and not null, an encrypted store, and keeps it alive.
  ///
  /// `password` is any bytes; a text should be in one normal form of UTF-8. Fails with `Conflict`
  /// if the store is encrypted already or has branches or objects, with `Unsupported` for a cost
  /// that is too small, or greater than `kMostCost`, and with `Unavailable` if that much memory
  /// isn't available. No two programs may call this at once for one store.
  static Result<EncryptedStore> Create(std::shared_ptr<IObjectStore> store,
                                       std::string_view password, PasswordCost cost = {});

  /// Opens an encrypted store, which must not be null, and keeps it alive.
  ///
  /// Fails with `NotFound` if `store` isn't encrypted, with `Denied` if `password` is another one,
  /// with `Damaged` if the bytes that say how to open it were changed, and with `Unsupported` if
  /// they are of another version or ask for more than `mostCost`.
  static Result<EncryptedStore> Open(std::shared_ptr<IObjectStore> store, std::string_view password,
                                     PasswordCost mostCost = kMostCost);

  EncryptedStore(EncryptedStore&& other) noexcept;
  EncryptedStore& operator=(EncryptedStore&& other) noexcept;
  ~EncryptedStore() override;

  /// Lets the store be opened by `newPassword` and not by the former one any more. Nothing is
  /// encrypted anew: somebody who had the former password and a copy of the store from before can
  /// still read the store. To exclude that, copy the history into a new encrypted store.
  ///
  /// Fails as `Create` does for the cost and as the store below; the former password is valid then,
  /// except after `Unknown`.
  Status ChangePassword(std::string_view newPassword, PasswordCost cost = {});

  Result<std::vector<Id>> Missing(std::span<const Id> ids) override;
  Status Read(std::span<const Id> ids, const ReadSink& sink) override;
  Status ReadHistory(const Id& id, std::uint64_t most, const ReadSink& sink) override;
  /// Returns none for what is damaged, too.
  Result<std::vector<std::optional<std::uint64_t>>> Sizes(std::span<const Id> ids) override;
  Status Write(std::span<const StoredObject> objects) override;
  /// Fails with `Damaged` if the name of any branch is; `Error::heads` has the others.
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
  /// Reads the heads and the value at once if the store below can, and no objects: which ones
  /// belong to a head is encrypted. A value that was changed counts as none.
  Result<StoreOpening> ReadOpening(std::string_view branch, std::string_view valueName,
                                   std::string_view otherwise) override;

 private:
  TALVCS_ENCRYPTION_NO_EXPORT Result<std::vector<StoredObject>> SealObjects(
      std::span<const StoredObject> objects);
  TALVCS_ENCRYPTION_NO_EXPORT EncryptedStore(std::shared_ptr<IObjectStore> store,
                                             std::unique_ptr<Encryption::Sealer> sealer) noexcept;
  TALVCS_ENCRYPTION_NO_EXPORT Result<std::vector<Head>> OpenHeads(std::span<const Head> sealed);
  TALVCS_ENCRYPTION_NO_EXPORT Result<std::vector<Head>> OpenHeads(Result<std::vector<Head>> sealed);
  TALVCS_ENCRYPTION_NO_EXPORT Error OpenConflict(Error error, std::span<const HeadMove> moves);
  TALVCS_ENCRYPTION_NO_EXPORT Result<std::uint64_t> CountUnmarkedBytes(
      const std::vector<Id>& marked);

  std::shared_ptr<IObjectStore> m_store;
  std::unique_ptr<Encryption::Sealer> m_sealer;
};

}  // namespace TalVcs::Kit
