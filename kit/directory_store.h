#pragma once

#include <kit/export.h>
#include <talvcs/foundation/names.h>
#include <talvcs/persistence/blob_io.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace TalVcs::Kit {

/// How a `DirectoryStore` works.
struct DirectoryStoreOptions {
  /// The root path that the host gives to its `Serializer` and `Deserializer`.
  TalStringT<WideChar> rootPath;

  /// Whether a commit waits until everything is on the medium, so that it outlives a loss of power.
  /// Without it, a commit still outlives the end of the process at any point.
  bool durable = true;

  /// Whether an object that the store has is read and compared with what is saved, and written anew
  /// if it differs. Otherwise its size alone is looked at.
  bool compareContents = false;
};

/// A store in the folder ".vcs" below a folder, whose saves are transactions.
///
///     .vcs/state               what the store holds: ids of the objects, branches with their heads
///     .vcs/objects/ab/cdef...  one file an object, its packed form
///     .vcs/lock, .vcs/readers  empty files that processes lock
///
/// Other files in ".vcs" are the host's and stay untouched.
///
/// *Saving.* The first `RemoveStorage` or `CommitBlobStream` begins a transaction, which ends with
/// `Commit` or `Abandon`, or is abandoned when the store object ends. Until `Commit` replaces the
/// file "state" by one rename, every reader finds the old store, this object too. An object that
/// the store holds already isn't written again; what the new state lacks is removed at the end.
/// The next commit removes what a killed process has left. A transaction in which any stream failed
/// can't be committed.
///
/// *Reading.* The first read reads the state of that moment, and so does each listing of the
/// branches, which every load begins with. Until the next listing, or `Refresh`, the store object
/// reads that state alone, even if others commit: while there are readers, a commit removes no
/// object.
///
/// *Writers.* One transaction at a time: while another process, or another store object, writes, a
/// transaction fails at once. It also fails if somebody has replaced the state since this object
/// read it, because it would undo what was committed meanwhile; load again before saving.
///
/// *Paths.* With the root path of the options, the objects of `PathBuilder` are files and
/// everything else, such as branches, is in the file "state". So any path and any branch name can
/// be used and comes back unchanged, even if no file could have that name. The path of an object
/// must be that of its content's id.
///
/// *Failures.* No operation throws for an error of the file system. It returns what its interface
/// says, `LastError` returns what happened, and the old store stays. A state that is damaged,
/// missing beside objects, or upgraded by a `DirectoryObjectStore` is never taken for an empty
/// store: it has one branch, of empty name, that can't be opened, and refuses transactions.
///
/// Threads: a store object belongs to one thread at a time; several of them may work on one folder.
class TALVCS_KIT_API DirectoryStore : public IBlobReader, public IBlobWriter {
 public:
  /// Works below `folder`, which a transaction makes if its last component is missing. Nothing is
  /// opened yet, but a relative path is resolved at this call.
  explicit DirectoryStore(const std::filesystem::path& folder, DirectoryStoreOptions options = {});
  /// Afterwards `other` can only be assigned to or destroyed.
  DirectoryStore(DirectoryStore&& other) noexcept;
  DirectoryStore& operator=(DirectoryStore&& other) noexcept;
  /// Abandons a transaction that wasn't committed.
  ~DirectoryStore() override;

  /// Returns a stream in memory for one object, which `CommitBlobStream` writes.
  Stream CreateBlobStream(const TalStringT<WideChar>& path) override;

  /// Stores the bytes of the stream, from its position on, under `path` in the transaction. An
  /// object's file is written at once, but isn't part of the store before `Commit`. Returns false
  /// if that fails; the transaction can't be committed then.
  bool CommitBlobStream(const TalStringT<WideChar>& path, Stream stream) override;

  /// Takes every stream below `storagePath` out of the transaction. No file is removed yet: what is
  /// committed again under the same path stays where it is.
  void RemoveStorage(const TalStringT<WideChar>& storagePath) override;

  /// Returns a reader on the bytes under `path`, held in memory; one that tests false if the state
  /// has no such path or its file can't be read.
  StreamIO OpenBlob(const TalStringT<WideChar>& path) override;

  /// Returns the names, in order, of the streams directly below `directoryPath`; below a path that
  /// ends with "refs/heads", whole names of branches with any "/" in them.
  std::vector<TalStringT<WideChar>> ListBlobs(const TalStringT<WideChar>& directoryPath) override;

  /// Makes what the transaction holds the store. Returns true also if there is no transaction.
  ///
  /// False, with the old store in place and the transaction abandoned, if anything failed. There is
  /// one exception: if only the very last step fails, which makes the medium keep the new state,
  /// then the new store is in place; `IsNewStateInPlace` and `LastError` say so.
  bool Commit();

  /// Distinguishes the two failures of `Commit`: true if the last transaction's state is in place,
  /// also where the medium may not keep it; false while a transaction is under way and before any.
  bool IsNewStateInPlace() const noexcept;

  /// Drops the transaction, and the object files that it wrote.
  void Abandon();

  /// Keeps other writers away from now on, until `Unlock` or the end of this object, so that
  /// nothing changes between a load and a save. False if somebody else writes. Makes the folder.
  bool Lock();
  /// Ends what `Lock` began. A transaction goes on to its own end.
  void Unlock();

  /// Forgets the state that was read: the next read takes in the present one.
  void Refresh();

  /// Reads every object of the state. Returns the paths of those that are missing, that can't be
  /// read, or whose bytes don't have the digest in their path. Returns only the path of the folder
  /// ".vcs" if the state itself can't be read. Cost: reads and hashes the store.
  std::vector<TalStringT<WideChar>> FindDamage();

  /// Says which path failed in the last operation that failed, and why; empty if none did since a
  /// transaction began, `Lock` was called or the store was made. In UTF-8 as far as the path is.
  const std::string& LastError() const noexcept;

 private:
  friend struct StoreAccess;
  class TALVCS_KIT_NO_EXPORT Impl;
  TALVCS_KIT_NO_EXPORT explicit DirectoryStore(std::unique_ptr<Impl> impl) noexcept;

  std::unique_ptr<Impl> m_impl;
};

}  // namespace TalVcs::Kit
