#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/names.h>

#include <vector>

namespace TalVcs {

/// Takes the streams of a store from a `Serializer`; a host implements it.
///
/// A save calls `RemoveStorage` once, then `CreateBlobStream` and `CommitBlobStream` in turn for
/// each stream. A path comes at most once in a save. A failure doesn't end the save: the other
/// streams are still written, and the save returns false.
class TALVCS_API IBlobWriter {
 public:
  IBlobWriter() = default;
  IBlobWriter(const IBlobWriter&) = default;
  IBlobWriter& operator=(const IBlobWriter&) = default;
  virtual ~IBlobWriter();

  /// Returns a writable, seekable stream for the bytes of `path`. A default-constructed `Stream`
  /// takes no bytes and is passed to `CommitBlobStream` all the same.
  virtual Stream CreateBlobStream(const TalStringT<WideChar>& path) = 0;

  /// Stores the bytes of `stream` under `path`, and returns true if it has stored them. The stream
  /// comes from `CreateBlobStream`, and its position is its start.
  virtual bool CommitBlobStream(const TalStringT<WideChar>& path, Stream stream) = 0;

  /// Removes every stream below `storagePath`.
  virtual void RemoveStorage(const TalStringT<WideChar>& storagePath) = 0;
};

/// Returns the streams of a store to a `Deserializer`; a host implements it.
class TALVCS_API IBlobReader {
 public:
  IBlobReader() = default;
  IBlobReader(const IBlobReader&) = default;
  IBlobReader& operator=(const IBlobReader&) = default;
  virtual ~IBlobReader();

  /// Returns a reader on the bytes under `path`, at their start; one that tests false or is empty
  /// if there are none.
  virtual StreamIO OpenBlob(const TalStringT<WideChar>& path) = 0;

  /// Returns the names, not paths, of the streams directly below `directoryPath`. For the directory
  /// of the branches these are the names of the branches, as they were written.
  virtual std::vector<TalStringT<WideChar>> ListBlobs(
      const TalStringT<WideChar>& directoryPath) = 0;
};

}  // namespace TalVcs
