#pragma once

#include <talvcs/objects/internal/id_map.h>
#include <talvcs/objects/internal/load_target.h>

namespace TalVcs {

/// Reads the packed blobs of one load and stores them. No stream is read twice.
class BlobLoader {
 public:
  using Getter = Delegate<StreamIO(const Id&)>;

  BlobLoader(LoadTarget& target, Getter getter) noexcept : m_target(target), m_getter(getter) {}

  /// Returns the stored blob for the stream `id`, or null if it is no blob. The content decides the
  /// id of the blob, which is another one if the stream is damaged.
  cow_ptr<Blob> Load(const Id& id);

  /// Reads the stream like `Load`, but stores nothing.
  void ReadOnly(const Id& id);

 private:
  LoadTarget& m_target;
  Getter m_getter;
  // The results of streams that the repository doesn't return for their ids.
  IdMap<cow_ptr<Blob>> m_results;
};

}  // namespace TalVcs
