#pragma once

#include <kit/export.h>
#include <kit/store/object_store.h>
#include <kit/store/repairable_store.h>
#include <kit/store/trimmable_store.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {

/// How a `DirectoryObjectStore` works.
struct DirectoryObjectStoreOptions {
  /// Whether changes wait until everything is on the medium, so that they outlive a loss of power.
  /// Without it, they still outlive the end of the process at any point.
  bool durable = true;

  /// Whether new objects are compressed, and kept as differences from their previous versions. A
  /// store may have both kinds. A build without compression reads only what isn't compressed.
  bool compress = true;

  /// How long an operation waits for another writer before it fails with `Busy`.
  std::chrono::milliseconds busyTimeout{1000};

  /// The root path of the `DirectoryStore` that has written the folder, in UTF-8.
  std::string rootPath{};
};

/// An object store in the folder ".vcs" below a folder.
///
///     .vcs/state               a journal: branches with their heads, values
///     .vcs/packs/*.pack        objects, compressed or as differences from previous versions
///     .vcs/packs/*.index       where objects are in the packs
///     .vcs/objects/ab/cdef...  a large object that can't be compressed
///     .vcs/lock, .vcs/readers  empty files that processes lock
///
/// Other files in ".vcs" are the host's and stay untouched. docs/formats.md describes the files.
///
/// *Cost.* A save appends its objects to one pack and one record to the journal, and waits twice
/// for the medium if it is durable. Opening and a look-up cost the same however many objects and
/// saves there are: a few reads, of one page and one record as a rule. Reading a version decodes at
/// most six differences. Once in a few hundred saves an index is written, at other times the
/// journal anew. `List` and `RemoveUnmarked` read all packs. Only `RemoveUnmarked` puts packs
/// together; it needs room for a copy of those that it rewrites.
///
/// *Several store objects*, in one process or several, may work on one folder. Writers wait for
/// each other as long as the options say. A store object that has called `Heads` keeps all objects
/// in place until it ends: until then, `RemoveUnmarked` of the others fails with `Busy`, so the
/// packs that it knows stay readable. While `RemoveUnmarked` runs, `Write`, `MoveHeads`, `SetValue`
/// and the first `Missing` of a save fail with `Busy`, and `Heads` waits.
///
/// *Failures.* A process that ends or a loss of power at any point leaves the state before or after
/// a change, never another one. An incomplete last record of the journal is what such an end leaves
/// and is skipped; any other damage of the journal is the error `Damaged` in every operation that
/// needs it. Damage of a pack harms the object of the damaged record and those that are differences
/// from it, with the error `Damaged`; damage of an index harms nothing. `RemoveUnmarked` removes
/// everything or nothing. Objects of a save that didn't end stay until then. A full medium is
/// `Full`, a missing right `Denied`.
///
/// *Former formats.* A folder in the previous format, in which each object is a file, is read and
/// written; new objects go into packs, and `RemoveUnmarked` puts small files there. A folder that
/// `DirectoryStore` has written is read as it is; streams that are neither objects nor branches are
/// values under their paths. The first operation that writes upgrades it in place, which looks once
/// at every name in the folder of the objects. From then on `DirectoryStore` refuses the folder and
/// says why in its `LastError`.
///
/// Threads: it belongs to one thread at a time. A child process inherits its locks and must not use
/// it.
class TALVCS_KIT_API DirectoryObjectStore final : public IObjectStore,
                                                  public IRepairableStore,
                                                  public ITrimmableStore {
 public:
  /// Opens the store below `folder`. Fails with `NotFound` if there is none, and as reading fails.
  /// A relative path is resolved at this call.
  static Result<DirectoryObjectStore> Open(const std::filesystem::path& folder,
                                           DirectoryObjectStoreOptions options = {});
  /// Makes an empty store below `folder`, whose last component may be missing, and opens it. Fails
  /// with `Conflict` if there is a store, also one of the former format. A relative path is
  /// resolved at this call.
  static Result<DirectoryObjectStore> Create(const std::filesystem::path& folder,
                                             DirectoryObjectStoreOptions options = {});

  /// Afterwards `other` can only be assigned to or destroyed.
  DirectoryObjectStore(DirectoryObjectStore&& other) noexcept;
  DirectoryObjectStore& operator=(DirectoryObjectStore&& other) noexcept;
  ~DirectoryObjectStore() override;

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
  Status Replace(std::span<const StoredObject> objects) override;
  void Trim() noexcept override;

 private:
  friend struct StoreAccess;
  class TALVCS_KIT_NO_EXPORT Impl;
  TALVCS_KIT_NO_EXPORT explicit DirectoryObjectStore(std::unique_ptr<Impl> impl) noexcept;

  std::unique_ptr<Impl> m_impl;
};

}  // namespace TalVcs::Kit
