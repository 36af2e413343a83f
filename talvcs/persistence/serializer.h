#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/names.h>
#include <talvcs/persistence/blob_io.h>
#include <talvcs/persistence/path_builder.h>
#include <talvcs/storage/objects_storage.h>

namespace TalVcs {

/// Writes a whole storage through an `IBlobWriter`: one stream an object, with its packed form, and
/// one a branch, with the id of its head.
///
/// A save replaces the store: `RemoveStorage` comes first. A failed save leaves a partial store, so
/// a host writes to a place that it can abandon. The writer is called by the thread that saves, and
/// an exception of it passes through.
class TALVCS_API Serializer {
 public:
  /// Writes below `rootPath` with `writer`, which the host owns and which may be null.
  Serializer(IBlobWriter* writer, const TalStringT<WideChar>& rootPath);
  Serializer(const Serializer&) = default;
  Serializer& operator=(const Serializer&) = default;
  virtual ~Serializer();

  /// Writes all of `storage`, which must not change meanwhile. Returns false, with the store
  /// untouched, for an `OnDemandStorage`: its tables hold what is new alone, so the rest of the
  /// store would be lost. A null storage erases the store and gives true. A branch without a head
  /// leaves no stream. Returns false if any stream wasn't stored, as all aren't with a null writer;
  /// the others are written all the same.
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
