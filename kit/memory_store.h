#pragma once

#include <kit/export.h>
#include <kit/text.h>
#include <talvcs/foundation/names.h>
#include <talvcs/persistence/blob_io.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

namespace TalVcs::Kit {

/// A store in memory: a map from paths to bytes.
///
/// A value: a copy is a store of its own that shares the bytes. What a `Serializer` saves here
/// shares the bytes of the repository's objects, and what is loaded shares the bytes of the store,
/// so that neither copies any. A moved-from store is empty.
///
/// There is no transaction: the store has each stream as soon as it is committed. Every text is a
/// path, and two paths are equal if their texts are.
///
/// Threads: a store belongs to one thread at a time, even for reading.
class TALVCS_KIT_API MemoryStore : public IBlobReader, public IBlobWriter {
 public:
  MemoryStore();
  MemoryStore(const MemoryStore& other);
  MemoryStore(MemoryStore&& other) noexcept;
  MemoryStore& operator=(const MemoryStore& other);
  MemoryStore& operator=(MemoryStore&& other) noexcept;
  ~MemoryStore() override;

  /// Returns a stream in memory, which has nothing to do with the store yet.
  Stream CreateBlobStream(const WideString& path) override;

  /// Stores the bytes of the stream, from its position on, under `path`, in place of what was
  /// there. Returns false, with nothing changed, if the stream can't be read.
  bool CommitBlobStream(const WideString& path, Stream stream) override;

  /// Removes every stream whose path is `storagePath`, a "/" and anything. Cost: linear in what is
  /// removed.
  void RemoveStorage(const WideString& storagePath) override;

  /// Returns a reader on the bytes under `path`, which keeps them alive when the store changes or
  /// ends; one that tests false if there are none.
  StreamIO OpenBlob(const WideString& path) override;

  /// Returns the sorted names of the streams directly below `directoryPath`.
  ///
  /// The names below a path that ends with "refs/heads" are those of branches, which may contain
  /// "/": there, everything after the directory's path and a "/" is one name.
  std::vector<WideString> ListBlobs(const WideString& directoryPath) override;

  /// Number of streams.
  std::size_t GetCount() const noexcept;
  /// Number of bytes in all streams, without their paths.
  std::uint64_t GetSizeInBytes() const noexcept;

 private:
  std::map<WideString, Buffer> m_streams;
};

}  // namespace TalVcs::Kit
