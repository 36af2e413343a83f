#pragma once

#include <kit/export.h>
#include <kit/store/object_store.h>
#include <talvcs/foundation/names.h>
#include <talvcs/persistence/blob_io.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {

/// Lets a `Serializer` save into an object store, and a `Deserializer` load from one.
///
/// *Saving* is a transaction. It begins with the first `RemoveStorage` or `CommitBlobStream`, which
/// reads the heads. Objects are written as they come; branches are collected, and `Commit` moves
/// them all. A branch that the save doesn't write is removed. Objects that no branch needs any more
/// stay until `IObjectStore::RemoveUnmarked`. A transaction in which anything failed can't be
/// committed.
///
/// *Loading* takes in the heads with each listing of the branches, or else with the first branch
/// that is opened.
///
/// Streams that are neither objects nor branches can't be written.
class TALVCS_KIT_API ObjectStoreAsBlobs final : public IBlobReader, public IBlobWriter {
 public:
  /// Works on `store`, which outlives this object. `rootPath` is the one that the host gives to its
  /// `Serializer` and `Deserializer`, in UTF-8.
  explicit ObjectStoreAsBlobs(IObjectStore& store, std::string_view rootPath = {});
  ObjectStoreAsBlobs(const ObjectStoreAsBlobs&) = delete;
  ObjectStoreAsBlobs& operator=(const ObjectStoreAsBlobs&) = delete;
  ~ObjectStoreAsBlobs() override;

  /// Returns a stream in memory, which `CommitBlobStream` writes.
  Stream CreateBlobStream(const TalStringT<WideChar>& path) override;
  /// Takes an object or a branch into the transaction. False if that fails, now or before.
  bool CommitBlobStream(const TalStringT<WideChar>& path, Stream stream) override;
  /// Takes every branch below `storagePath` out of the transaction.
  void RemoveStorage(const TalStringT<WideChar>& storagePath) override;

  /// Returns a reader on an object or on the id of a branch's head; one that tests false if there
  /// is none or reading fails.
  StreamIO OpenBlob(const TalStringT<WideChar>& path) override;
  /// Returns the names of the branches, or of the objects directly below `directoryPath`. Objects
  /// cost a listing of the whole store. Returns none if that fails.
  std::vector<TalStringT<WideChar>> ListBlobs(const TalStringT<WideChar>& directoryPath) override;

  /// Moves the branches to where the transaction has them, and ends it. Succeeds with nothing done
  /// if there is none. Fails with the first error of the transaction, or as `MoveHeads` does.
  Status Commit();
  /// Ends the transaction; its objects stay until `RemoveUnmarked`.
  void Abandon();

  /// The error of the last operation that failed; success if none did since a transaction began.
  const Status& LastStatus() const noexcept;

 private:
  class TALVCS_KIT_NO_EXPORT Impl;
  std::unique_ptr<Impl> m_impl;
};

}  // namespace TalVcs::Kit
