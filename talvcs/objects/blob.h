#pragma once

#include <talvcs/export.h>
#include <talvcs/format/object_type.h>
#include <talvcs/foundation/names.h>
#include <talvcs/objects/dll_wrapped_shared.h>
#include <talvcs/objects/object.h>

#include <span>

namespace TalVcs {

/// The content of one file: a sequence of bytes without a name.
///
/// A value whose copies share the bytes. A blob changes only by assignment of another blob. A
/// moved-from blob has no bytes but still has the id and packed form that were cached, so assign to
/// it before you use it again.
///
/// Threads: no blob may be used by two threads at once, because observers fill caches.
class TALVCS_API Blob : public Object {
 public:
  /// The mode and type words of blobs.
  static constexpr TalStringViewT<char> kMode = kBlobMode;
  static constexpr TalStringViewT<char> kType = kBlobType;

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

  /// Returns the packed form like `GetPackedData`, but does not cache it.
  Buffer BuildPackedData() const;

  /// Computes and caches the ids of several blobs together. Skips null pointers.
  ///
  /// `GetId` returns the same ids without it. For blobs of a kilobyte and more, on processors that
  /// can interleave two computations, this takes five sixths of the time of the single calls.
  static void ComputeIds(std::span<const Blob* const> blobs);

  /// Reads a packed blob from `stream`, and shares the bytes of a stream that allows it. Returns
  /// null if there is no stream or the header does not begin with "blob". The size in the header is
  /// not checked. If the stream ends early, the blob has the bytes that were read.
  static cow_ptr<Blob> Deserialize(StreamIO& stream);

 private:
  Buffer m_buffer;
};

}  // namespace TalVcs
