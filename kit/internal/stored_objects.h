#pragma once

#include <kit/internal/object_files.h>
#include <kit/internal/packed_objects.h>
#include <kit/internal/state_file.h>
#include <kit/store/encoded_objects.h>
#include <kit/store/object_store.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace TalVcs::Kit {

/// The objects of a store in a folder: most are in packs, in their encoded forms, and large ones
/// that can't be compressed are files of their own.
class StoredObjects {
 public:
  /// Works in `folder` on the packs that `state` names; both outlive this object.
  StoredObjects(StoreFolder& folder, StateFile& state, bool compress)
      : m_state(state), m_files(folder), m_packs(folder), m_compress(compress) {}

  /// Returns the size of the packed form; nothing if there is no such object.
  Result<std::optional<std::uint64_t>> SizeOf(const ObjectKey& key);
  /// Returns the packed form; the error is `NotFound` if there is no such object.
  Result<Buffer> Read(const ObjectKey& key);
  /// Calls `visit` once for each object, in no order.
  Status Visit(const std::function<void(const ObjectKey& key)>& visit);
  /// Frees what can be read again.
  void Trim() noexcept {
    m_encoded.Clear();
    m_packs.Trim();
  }

  // For the one writer, which holds the lock and has refreshed the state.

  /// Makes ready for a write or a move of heads. The result is false if objects may be gone that
  /// were there before.
  Result<bool> BeginWriting();
  /// Writes those that are missing, in their order and so that the medium has them.
  Status Write(std::span<const StoredObject> objects);
  /// Writes objects again, so that they are found in place of records and files that are damaged.
  Status Replace(std::span<const StoredObject> objects);
  /// Waits until the medium has all that can be found, and adds to `changes` up to where it is.
  Status Keep(JournalChanges& changes);
  /// Removes the files of a removal that never ended.
  Status FinishRemoval();
  /// Removes all other objects, all at once as far as a later look can see.
  Result<RemovedObjects> RemoveAllBut(const std::set<ObjectKey>& kept);
  /// Makes sure that a former state names no file that isn't whole, and removes the others.
  Status CheckFiles(const StoreState& former);

 private:
  friend class ObjectRemoval;
  using Encoded = std::vector<std::byte>;

  void UsePacks();
  bool MayHaveFile(const ObjectKey& key) const;
  Result<std::optional<std::uint64_t>> PackedSizeOf(const ObjectKey& key);
  Result<Buffer> ReadFile(const ObjectKey& key);
  ReadEncoded EncodedReader();
  Result<Encoded> ReadEncodedForm(const ObjectKey& key);
  Encoded Encode(const StoredObject& object);
  Status Flush();
  void ForgetPending();
  struct Writing;
  struct Removing;
  Status WriteOne(const StoredObject& object);
  Status Put(const StoredObject& object);
  Status NamePacks();

  StateFile& m_state;
  ObjectFiles m_files;
  PackedObjects m_packs;
  const bool m_compress;
  EncodedObjects m_encoded;
  std::uint64_t m_removals = 0;

  // What a write has yet to put.
  std::vector<ObjectFiles::KeyedObject> m_pendingFiles;
  std::map<ObjectKey, Encoded> m_pending;  // without the bytes of files
  std::vector<ObjectKey> m_pendingOrder;
  std::uint64_t m_pendingBytes = 0;
};

}  // namespace TalVcs::Kit
