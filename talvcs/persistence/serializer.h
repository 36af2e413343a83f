#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/names.h>
#include <talvcs/persistence/blob_io.h>
#include <talvcs/persistence/path_builder.h>
#include <talvcs/storage/objects_storage.h>

namespace TalVcs {

/// Writes a whole storage through an `IBlobWriter`: the packed form of each object and the id of
/// each head, each in a stream of its own.
///
/// A save replaces the store: it calls `RemoveStorage` first. A failed save leaves a partial store,
/// so write to a new place and replace the old store after a success.
///
/// A `Deserializer` cannot load every store that was written: see there. Load the new store into an
/// empty repository before you remove the old one, or keep to what `Commit` says about its fields.
///
/// The writer is called on the thread of the save. Its exceptions pass through.
class TALVCS_API Serializer {
 public:
  /// Writes below `rootPath`. `writer` may be null and must outlive the serializer.
  Serializer(IBlobWriter* writer, const TalStringT<WideChar>& rootPath);
  Serializer(const Serializer&) = default;
  Serializer& operator=(const Serializer&) = default;
  virtual ~Serializer();

  /// Writes all of `storage`, which must not change meanwhile. A branch without a head has no
  /// stream. A null storage erases the store and returns true.
  ///
  /// Returns false if a stream was not stored, after writing the others; with a null writer none
  /// is. Returns false, with the store unchanged, for an `OnDemandStorage`: its tables hold only
  /// what is new, so the rest of the store would be lost.
  virtual bool Serialize(const IObjectsStorage* storage);

  /// Erases the store.
  void CleanUpStorage();

 private:
  template <class Table>
  bool SerializeObjects(const Table& objects);
  bool SerializeRefs(const RefTable& refs);
  bool SerializeRef(const TalStringT<WideChar>& name, const cow_ptr<Commit>& commit);
  template <class Content>
  bool BuildStream(const Content& content, const TalStringT<WideChar>& path) const;

  IBlobWriter* writer;
  PathBuilder pathBuilder;
};

}  // namespace TalVcs
