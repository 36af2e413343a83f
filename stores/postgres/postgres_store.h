#pragma once

#include <kit/store/background_writer.h>
#include <kit/store/gradual_removal.h>
#include <kit/store/head_watcher.h>
#include <kit/store/object_store.h>
#include <kit/store/opening_store.h>
#include <kit/store/repairable_store.h>
#include <stores/postgres/export.h>

#include <chrono>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {
namespace Postgres {
class Repository;
}  // namespace Postgres

/// How a `PostgresStore` works.
struct PostgresOptions {
  /// Whether the tables and the repository are made if they are missing. Otherwise opening fails
  /// with `NotFound`.
  bool create = true;
  /// How long an operation waits for others, or repeats a transaction that the server undid because
  /// of them, before it fails with `Busy`.
  std::chrono::milliseconds busyTimeout{5000};
  /// How long an operation tries to reach the server, at the beginning and after a connection was
  /// lost, before it fails with `Unavailable`.
  std::chrono::milliseconds connectTimeout{10000};
  /// Whether objects are stored compressed where that is shorter. Such objects are read in any
  /// case.
  bool compress = true;
};

/// A repository on a PostgreSQL server, which programs on many machines use at once.
///
/// *Place.* The tables are in the schema "talvcs" of one database and have many repositories, each
/// under a name. Connections are made as libpq does: the text is a list of keywords or a URI, and
/// passwords, certificates and several hosts work as its documents say.
///
/// *Round trips.* `Missing`, `Sizes` and `Write` need one for each 8,192 ids or 16 MiB, `Read` as
/// many, and one more for each 16 MiB of a large object. A `Write` of 256 objects or more needs
/// three more, and half of the server's time: it is a COPY, which is repeated as statements if one
/// of the objects is there. `ReadHistory` needs one, whatever its
/// length, but one for each commit that the store wrote with tables of version 1. `MoveHeads` needs
/// two. `Open` needs one besides those of the connection, and `Kit::Open` one for the branches, the
/// newest version and its root folder.
///
/// *Durability.* A `Write` returns when the server has the objects, but before they are on its
/// disk. `MoveHeads` waits for the disk, and for a synchronous standby: for all that was written
/// before and for the move itself, even where the server, the database or the role has set
/// `synchronous_commit` to off. Other values, such as `local`, stay as they are and wait for less.
/// After a lost connection a `Write` and a `MoveHeads` look for what
/// the save relies on, and fail with `Busy` if the server has lost any of it.
///
/// *Others.* Each operation is a transaction, or several if it is large. Nothing is held between
/// two calls. A save waits for no other save, except one that moves the same branch. What the
/// server undoes because of others is repeated after a pause of random length.
///
/// *Clean-up.* `RemoveUnmarked` locks the repository until it ends: saves of others wait, and fail
/// with `Busy` after the timeout. It removes objects at once, even those that another program has
/// begun to read. `CleanUpGradually` has neither effect.
///
/// *Lost connections.* An operation connects again and repeats what it did. If the answer to a
/// `MoveHeads` is lost, it looks at the branches: if they are where they were to go, or the branch
/// is at a descendant of that commit, it succeeds. Otherwise, and if the server can't be reached,
/// it fails with `Unknown`.
///
/// *Errors.* `Conflict`: a branch has moved. `Busy` with a cause: others keep the repository
/// locked. `Busy` without a cause: objects that the save relies on were removed, so the save must
/// begin again, as `Kit::Save` does. `Unavailable`: the server can't be reached. `Denied`: the user
/// may not do that, or the password is wrong. `Full`: the server has no space left. `Damaged`: the
/// rows or the tables aren't what this class writes. `NotFound` from `Open`: there is no such
/// database or repository. `Unsupported`: a newer version of this class has made the tables.
///
/// *Trust.* Bytes that don't fit their id are passed on, as the contract allows; a host that
/// doesn't trust the server puts a `ChecksumStore` over it. `Kit::Open` checks what it reads.
///
/// *Background.* Between `BeginWrite` and the end of the writes, the server inserts and a thread
/// compresses while the caller reads what comes next, as in `Remote::Push` and `Kit::Copy`.
///
/// *Memory.* From the first `Missing` or `Write` to the next `MoveHeads` a store object remembers
/// the ids that it looked for or wrote, with 32 bytes each.
///
/// A moved-from store fails with `Unavailable`. Threads: a store object belongs to one thread at a
/// time, and not to the child after a fork. Its own thread runs only from `BeginWrite` to the end
/// of what was begun, and calls nothing of the host.
class TALVCS_POSTGRES_API PostgresStore final : public IObjectStore,
                                                public IHeadWatcher,
                                                public IGradualRemoval,
                                                public IOpeningStore,
                                                public IRepairableStore,
                                                public IBackgroundWriter {
 public:
  /// Connects by `connection`, and opens the repository of that name, which is UTF-8 with 1 to 200
  /// bytes; others fail with `BadName`, and so does a connection that libpq can't read. Two
  /// programs may make the same repository at once. Cost: a connection and one round trip. Tables
  /// of an older version are upgraded, which needs the rights of their owner.
  static Result<PostgresStore> Open(const std::string& connection, std::string_view repository,
                                    PostgresOptions options = {});

  PostgresStore(PostgresStore&& other) noexcept;
  PostgresStore& operator=(PostgresStore&& other) noexcept;
  ~PostgresStore() override;

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
  /// Waits by LISTEN on a second connection, which lasts as long as the store.
  Result<std::vector<Head>> WaitForHeads(std::span<const Head> seen,
                                         std::chrono::milliseconds timeout) override;
  /// Needs the rights of a cleaner, and keeps saves waiting for a moment only. The grace is counted
  /// by the clock of the server. The store object remembers all ids of the repository meanwhile,
  /// with 32 bytes each.
  Result<RemovedObjects> RemoveGradually(const MarkObjects& mark,
                                         std::chrono::milliseconds grace) override;
  /// Returns the objects as well, in the same round trip.
  Result<StoreOpening> ReadOpening(std::string_view branch, std::string_view valueName,
                                   std::string_view otherwise) override;
  /// Needs the rights of a writer and of a cleaner.
  Status Replace(std::span<const StoredObject> objects) override;
  /// Writes on a thread that ends with what was begun, or on the caller's if the system refuses
  /// one. Up to three lists are held: one that is written, and two that wait.
  Status BeginWrite(std::vector<StoredObject> objects) override;
  Status FinishWrites() override;
  void DropWrites() noexcept override;

 private:
  // Waits for what was begun, before each other operation; fails as it did.
  TALVCS_POSTGRES_NO_EXPORT Status Settle();
  explicit PostgresStore(std::unique_ptr<Postgres::Repository> repository) noexcept;

  std::unique_ptr<Postgres::Repository> m_repository;
};

}  // namespace TalVcs::Kit
