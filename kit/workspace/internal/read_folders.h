#pragma once

#include <kit/store/object_store.h>
#include <talvcs/persistence/packed_object.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace TalVcs::Kit {

/// Most folders that are worth one read.
inline constexpr std::size_t kFoldersTogether = 64;

/// A folder as a store has it.
struct FolderRecord {
  std::uint64_t sizeBytes = 0;
  std::vector<PackedReference> entries;  // in the order of the packed form
};

/// Reads folders, of which no id comes twice, by one call of the store. Fails with the store's
/// error for a folder, and with `Damaged` for one that can't be read.
Result<std::vector<FolderRecord>> ReadFolders(IObjectStore& store, std::span<const Id> ids);

}  // namespace TalVcs::Kit
