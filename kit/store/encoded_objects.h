#pragma once

#include <kit/export.h>
#include <kit/store/object_codec.h>
#include <kit/store/object_store.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace TalVcs::Kit {

/// Returns the encoded form of an object from a store, or the error of the read. `NotFound` means
/// that the store lacks the object.
using ReadEncoded = std::function<Result<std::vector<std::byte>>(const Id& id)>;

/// What a store that keeps encoded forms needs beside its own table: chooses the base of each new
/// object, decodes along the bases, and caches what was decoded and may be a base again.
///
/// *The store's part.* It encodes only what it lacks and then keeps. It keeps the base of
/// everything that it keeps: a removal encodes what loses its base anew, or keeps the base as well.
/// An object that is kept as a base alone is used as it is when it is written again, and not
/// encoded. The store calls `Clear` when an object that was encoded or decoded before may not be in
/// the store any more: after a write or a removal that failed or was rolled back, and after any
/// removal, even by another store object. A store that can't notice all of these checks, before it
/// keeps a difference, that the base is there and that `DepthOf` its position is less than that of
/// the difference.
///
/// A resource; moved, not copied. A moved-from object may only be assigned to or destroyed.
/// Threads: one thread at a time.
class TALVCS_KIT_API EncodedObjects {
 public:
  static constexpr std::uint64_t kDefaultCacheBytes = std::uint64_t{16} << 20;  ///< 16 MiB.

  /// The cache takes up to `cacheBytes`, counted as packed forms and the room for their entries.
  explicit EncodedObjects(std::uint64_t cacheBytes = kDefaultCacheBytes);
  EncodedObjects(EncodedObjects&& other) noexcept;
  EncodedObjects& operator=(EncodedObjects&& other) noexcept;
  ~EncodedObjects();

  /// Returns the encoded form of an object that the store lacks.
  ///
  /// It is a difference if `object.previous` is in the store and a difference is clearly shorter.
  /// The base is the previous version or one before it, as `kVersionsInGroup` explains. A base that
  /// can't be read, or that doesn't fit its id, isn't used. Cost: one compression, and up to seven
  /// reads by `read` for what isn't cached; none for a version that continues a recent one.
  std::vector<std::byte> Encode(const StoredObject& object, const ReadEncoded& read);

  /// Returns the packed form of the object `id`, whose encoded form is `encoded`.
  ///
  /// Reads its bases by `read`, six at most, unless they are cached. Fails with the error of that
  /// read, but with `Damaged` for a base that the store lacks, and as `ObjectDecoder::Decode` does.
  Result<Buffer> Decode(const Id& id, std::span<const std::byte> encoded, const ReadEncoded& read);

  /// Returns the packed form of an object that was read as the base of another one, if it is still
  /// cached. The store may then do without a read of its own. Returns it once for each time
  /// that it was read as a base, so that a second read goes to the store.
  std::optional<Buffer> TakeBase(const Id& id);

  /// Forgets all objects.
  void Clear() noexcept;

  /// Returns how many bytes the cache takes now.
  std::uint64_t GetCachedBytes() const noexcept;

 private:
  struct State;
  std::unique_ptr<State> m_state;
};

}  // namespace TalVcs::Kit
