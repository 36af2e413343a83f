#pragma once

#include <talvcs/export.h>
#include <talvcs/foundation/names.h>
#include <talvcs/objects/dll_wrapped_shared.h>
#include <talvcs/objects/object.h>

#include <span>

namespace TalVcs {

/// The leaf of the model: opaque bytes.
///
/// A value whose copies share the bytes. Once made, it changes only by assignment of a whole blob.
/// A moved-from blob has no bytes but keeps the id and packed form that it had computed; assign to
/// it before using it again.
///
/// Threads: no blob may be used by two threads at once, because observers fill caches.
class TALVCS_API Blob : public Object {
 public:
  /// The mode and type words of blobs.
  static constexpr TalStringViewT<char> kMode{"100644", 6};
  static constexpr TalStringViewT<char> kType{"blob", 4};

  /// A blob of no bytes.
  Blob() noexcept;
  explicit Blob(const Buffer& data);
  explicit Blob(Buffer&& data) noexcept;
  Blob(const Blob& other);
  Blob(Blob&& other);
  Blob& operator=(const Blob& other);
  Blob& operator=(Blob&& other);
  ~Blob() override;

  Id GetId() const override;
  TalStringT<char> GetHeader() const override;
  TalStringT<char> GetStoragePrefix() const override;
  const Buffer& GetData() const override;

  /// Returns the packed form like `GetPackedData`, without keeping it in the object.
  Buffer BuildPackedData() const;

  /// Computes the ids of several blobs together, which takes about five sixths of the time that it
  /// takes to ask each for its own, on processors that can interleave two computations and for
  /// blobs of a kilobyte and more. `GetId` gives the same ids with or without it, and then at once.
  /// Null pointers are passed over.
  static void ComputeIds(std::span<const Blob* const> blobs);

  /// Reads a packed blob from `stream`, sharing its bytes where the stream allows it. Returns null
  /// if there is no stream or the header doesn't begin with "blob"; the size that the header tells
  /// isn't looked at.
  static cow_ptr<Blob> Deserialize(StreamIO& stream);

 private:
  Buffer m_buffer;
};

}  // namespace TalVcs
