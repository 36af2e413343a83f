#pragma once

#include <kit/store/object_store.h>
#include <kit/store/repairable_store.h>
#include <kit/store/trimmable_store.h>
#include <kit/text/progress.h>
#include <stores/sqlite/export.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

struct sqlite3;

namespace TalVcs::Kit {
namespace Sqlite {
class Database;
class Document;
}  // namespace Sqlite

/// How changes become durable.
enum class SqliteJournalMode {
  Rollback,       ///< The file is changed in place; a journal beside it undoes what didn't end.
  WriteAheadLog,  ///< Changes go to a log beside the file first; saves wait less.
};

/// How a `SqliteStore` works.
struct SqliteOptions {
  /// Whether a file that is missing or empty becomes a new document. Otherwise opening one fails.
  bool create = true;
  /// Whether the file is only read. It is never made then, and all changes fail with `Denied`.
  bool readOnly = false;
  /// Whether a change waits until it is on the medium, so that it outlives a loss of power. Without
  /// it, a change still outlives the end of the process.
  bool durable = true;
  /// How long an operation waits for other programs before it fails with `Busy`.
  std::chrono::milliseconds busyTimeout{5000};
  /// How many bytes of written objects stay in memory until heads move; see `SqliteStore`.
  std::uint64_t bufferSizeBytes = std::uint64_t{16} << 20;
  /// How changes become durable; see `SqliteStore`.
  SqliteJournalMode journalMode = SqliteJournalMode::Rollback;
  /// Whether a document opens although the file with its last changes, "-wal", is missing. It may
  /// be an older state, or have parts of several: verify it. A program that removed the log after
  /// it had moved all of it into the document has done no harm.
  bool acceptMissingLog = false;
  /// Whether the bytes of removed objects are overwritten in the file. Costs writes in a removal.
  /// The medium itself may keep old blocks, and copies of the file keep what they have.
  bool secureDelete = false;
  /// Whether objects are stored compressed, or as differences from their previous versions, where
  /// that is shorter. Such objects are read in any case.
  bool compress = true;
};

/// What `SqliteStore::Salvage` has found.
struct SqliteSalvage {
  std::uint64_t objects = 0;      ///< The objects of the new document, each compared with its id.
  std::uint64_t lostObjects = 0;  ///< Objects of which there are records, but none that is whole.
  std::vector<Head> heads;        ///< The branches of the new document, sorted by name.
  /// True if the branches that aren't named `salvaged/` and a number are all that the damaged
  /// document had: they fit a checksum that was found in it. If the newest pages are lost, that can
  /// be the checksum of an older state.
  bool hasAllHeads = false;
  std::uint64_t values = 0;  ///< The values of the new document.
};

/// A document with its history in one SQLite file: objects, branches, small values.
///
/// *Saving.* `Write` keeps the objects in memory. `MoveHeads` then puts the objects and the heads
/// into the file by one durable transaction, so that a save costs one commit and waits for no other
/// program before. This store object reads what it has written at once; other store objects see it
/// after `MoveHeads` or `Close`, or once the objects exceed `SqliteOptions::bufferSizeBytes` and
/// are put into the file by a transaction of their own. If the process ends before, the objects are
/// gone, which no head named. A failed `MoveHeads` keeps the objects, so it can be called again.
///
/// *Other programs.* Any number of store objects, in any number of processes, may have the file
/// open. One writes at a time; the others wait up to `SqliteOptions::busyTimeout`. No lock is held
/// between two calls. During `RemoveUnmarked` others can read, but not write. A store object that
/// has read heads before a removal can read what the heads of that moment reach, and nothing else
/// for sure.
///
/// *Write-ahead log.* With `SqliteJournalMode::WriteAheadLog` a save waits for the medium once, and
/// readers and a writer never wait for each other. While the document is open, the files "-wal" and
/// "-shm" beside it belong to it. The last store object that closes moves the log into the document
/// and removes both. After a crash, the next one to open it does; if "-wal" is missing then,
/// opening fails with `Damaged`, because the document alone may have parts of several states,
/// unless `SqliteOptions::acceptMissingLog` is set. It also fails with `Damaged`, and changes
/// nothing, if "-wal" belongs to another version of a document that was closed: a program that
/// copies files has replaced the one without the other. Of store objects that close at the same
/// moment, each may leave the log to the others; the next one to close removes it. The log is
/// copied into the document whenever it exceeds about a megabyte. Only a program that reads all the
/// time keeps it from shrinking. Doesn't work on network folders: opening fails with `Unsupported`.
///
/// *A host's database.* `Attach` puts the tables into a database of the host. If the host has begun
/// a transaction, each change is a savepoint in it and becomes durable when the host commits; if
/// the host rolls back, heads, objects and values are as before its transaction, and the host must
/// look for missing objects before it saves again (`Kit::Save` does). Otherwise each change is a
/// transaction of its own. No setting of the connection changes, so that durability, waiting and
/// journal are those of the host. `Busy` comes as soon as the host's busy handler ends the wait; in
/// a transaction that has only read so far, it may mean that the host must roll back and repeat it.
/// Statements of the host may be active; one that writes makes a transaction of the store fail with
/// `Busy`. A trigger or commit hook of the host that refuses a change makes it fail with `Denied`,
/// `sqlite3_interrupt` with `Cancelled`. A database whose texts are UTF-16 is `Unsupported`. After
/// `Full` or `Unavailable` SQLite may have undone the host's whole transaction:
/// `sqlite3_get_autocommit` shows that. `RemoveUnmarked` doesn't give pages back to the system.
///
/// *Size.* A removal that leaves a quarter of the file or more free gives that back to the system.
/// Documents of the first version need `Compact` once for that.
///
/// *Older documents.* A document of an older version opens and is read. The first change updates
/// its tables in the same transaction, at a cost independent of its size. Older programs then
/// refuse it.
///
/// *Read-only files.* A file that the process may not write opens all the same, and every change
/// fails with `Denied`.
///
/// *Damage.* Reading never crashes on a damaged file. Heads have a checksum: if it doesn't fit,
/// `Heads` fails with `Damaged`, and `Error::heads` has what can be read, some of it possibly
/// wrong. Bytes of objects have no checksum but their ids, which the caller compares. The file may
/// come from a stranger: SQL in it (triggers, views) doesn't run.
///
/// *Errors.* `Busy`: another program has the file. `Full`: no space. `Denied`: no right to do it.
/// `Damaged`: the file isn't a sound SQLite database or its tables aren't those of a document.
/// `Unsupported`: it belongs to another application or is of a newer version. `Unavailable`: the
/// system failed to read or write it. `Unknown`: the system failed while a change was completed,
/// which may be in the file.
///
/// A moved-from or closed store fails with `Unavailable`. Threads: a store object belongs to one
/// thread at a time, and not to the child after a fork.
class TALVCS_SQLITE_API SqliteStore final : public IObjectStore,
                                            public IRepairableStore,
                                            public ITrimmableStore {
 public:
  /// Opens the file at `path`. Cost: independent of the file's size.
  ///
  /// Fails with `NotFound` if the file is missing and isn't to be made, or if its folder is.
  static Result<SqliteStore> Open(const std::filesystem::path& path, SqliteOptions options = {});

  /// Uses the tables in the main database of `connection` whose names begin with `prefix`, or makes
  /// them if `options.create` says so; see "A host's database" above.
  ///
  /// The host keeps the connection, which must outlive the store, and uses it on the store's thread
  /// only. Both must use the same copy of SQLite. A prefix has up to 64 letters, digits and
  /// underscores of ASCII, doesn't begin with a digit or "sqlite_", and may be empty; otherwise
  /// this fails with `BadName`. Two prefixes must differ in more than case. Of the options, only
  /// `create`, `readOnly`, `bufferSizeBytes` and `compress` count.
  static Result<SqliteStore> Attach(sqlite3* connection, std::string_view prefix,
                                    SqliteOptions options = {});

  SqliteStore(SqliteStore&& other) noexcept;
  SqliteStore& operator=(SqliteStore&& other) noexcept;
  /// Does what `Close` does, without a result.
  ~SqliteStore() override;

  /// Replaces the document at `path` by a copy without free pages, in which every object is
  /// compressed that can be.
  ///
  /// The copy is written beside it under the name with "-compact" added, and then gets its name in
  /// one step: after a failure, a cancellation or a crash the document is as before. What a crash
  /// leaves beside it, the next compaction removes. Needs as much space as the document has at the
  /// end. Cost: all objects read and written once; the phase of the progress is "copy", its items
  /// are objects.
  ///
  /// Other store objects can read meanwhile, but not write, and use the new file from their next
  /// call on. A program that uses the file without this class must close it before. Fails with
  /// `Busy` if another program writes or uses a write-ahead log, with `Unsupported` if the file has
  /// tables of other programs. On Windows no other store object may have it open.
  static Status Compact(const std::filesystem::path& path, SqliteOptions options = {},
                        const Progress& progress = {});

  /// Copies the document, as `Compact` does, into a new one at `target`. Fails with `Denied` if
  /// there is a file of that name, or one that SQLite would take for its journal or log, or if
  /// `target` with "-compact" added is the document. Works on documents that can only be read, and
  /// in a host's database, of which only the store's tables are copied.
  Status CompactInto(const std::filesystem::path& target, const Progress& progress = {});

  /// Writes everything that is readable in the damaged document at `path` into a new one at
  /// `target`, also if `Open` refuses the document.
  ///
  /// All pages of the file, and of the "-wal" beside it, are searched for records of objects,
  /// branches and values; what leads to them isn't needed. An object is taken if its bytes are
  /// those of its id, a value if its checksum fits. Branches are taken as they are if their
  /// checksum fits, otherwise those with a commit. Each other commit that none names as its parent
  /// gets a branch `salvaged/1`, `salvaged/2` and so on, the newest first: also what was undone, or
  /// what comes before a commit that is lost. Branches may have holes: `Verify` lists them,
  /// `Repair` fills them from another store.
  ///
  ///     const SqliteSalvage salvage = SqliteStore::Salvage("a.tal", "rescued.tal").value();
  ///     SqliteStore rescued = SqliteStore::Open("rescued.tal").value();
  ///     Repair(rescued, copy).value();
  ///
  /// Branches and values aren't taken from pages that a newer one in the log replaces or that are
  /// free, as long as the first page says which these are. Objects that were removed come back if
  /// their bytes are still there; `CleanUp` removes them from the new document. A journal of a save
  /// that did not end isn't used: open the document first. In a file with the tables of several
  /// stores, their branches are mixed.
  ///
  /// The document is only read, and nothing is locked: no program may write to it meanwhile. The
  /// new one is written under the name `target` with "-compact" added and then gets its name in one
  /// step; `options` are those of the new one. Fails with `NotFound` if there is no file at `path`,
  /// with `Denied` if it can't be read, or if there is a file at `target` or at that other name, or
  /// one beside them with "-journal", "-wal" or "-shm" added, such as a crash leaves; and with
  /// `Cancelled`. After a failure there is no new document. Phases of the progress: "search", whose
  /// items are pages, and "copy", whose items are objects. Cost: the file read two to four times,
  /// and a compaction. Memory: some 150 bytes an object.
  static Result<SqliteSalvage> Salvage(const std::filesystem::path& path,
                                       const std::filesystem::path& target,
                                       SqliteOptions options = {}, const Progress& progress = {});

  /// Puts objects that are still in memory into the file, and closes it. After a failure the store
  /// is open and has the objects. Closing twice succeeds.
  Status Close();

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
  explicit SqliteStore(std::unique_ptr<Sqlite::Document> document) noexcept;

  std::unique_ptr<Sqlite::Document> m_document;
};

}  // namespace TalVcs::Kit
