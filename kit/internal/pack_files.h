#pragma once

#include <kit/internal/pack_index.h>
#include <kit/internal/store_folder.h>
#include <kit/text/result.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit {

/// The files of the packs of an object store in a folder, and those of their indexes.
///
/// A pack that has a number lower than another one is older. Files with other names belong to the
/// host.
class PackFiles {
 public:
  using Path = StoreFolder::Path;

  /// Works in `folder`, which outlives this object.
  explicit PackFiles(StoreFolder& folder)
      : m_folder(folder), m_path(folder.StorePath() / "packs") {}

  /// Returns the pack, which stays open; fails with `Damaged` if there is no such file.
  Result<OpenedFile*> Open(std::uint32_t number);
  Result<std::uint64_t> SizeOf(std::uint32_t number);
  /// Reads the check of the record that ends at `place`; nothing if the pack ends before.
  Result<std::optional<std::uint32_t>> CheckBefore(const PackPlace& place);
  /// Closes the files, because they may have been replaced.
  void Close() { m_opened.clear(); }

  /// Makes a pack that begins with `bytes`, in place of an unfinished one.
  Status Create(std::uint32_t number, std::string_view bytes);
  /// Puts bytes at position `end` of a pack, where it ends or where an incomplete record begins. A
  /// failed one removes them again as far as it can.
  Status Append(std::uint32_t number, std::uint64_t end, std::string_view bytes);
  /// Removes what follows position `end`, as far as that is possible.
  void CutOff(std::uint32_t number, std::uint64_t end);
  /// Waits until the medium has the bytes of a pack, if the store is durable.
  Status Sync(std::uint32_t number);
  /// Waits until the medium has the names of the packs, if the store is durable.
  Status SyncNames();
  void Remove(std::uint32_t number);

  /// Returns the numbers of all packs that have a file.
  Result<std::vector<std::uint32_t>> List();

  /// What the name of an index says that it has.
  struct IndexName {
    PackPlace from;
    PackPlace to;
    friend bool operator==(const IndexName&, const IndexName&) = default;
  };
  /// Returns the indexes; none if the folder can't be listed.
  std::vector<IndexName> ListIndexes();
  /// Returns null if the file is no index or can't be read.
  std::unique_ptr<PackIndex> OpenIndex(const IndexName& name);
  /// Returns false, with no such file, if that fails.
  bool WriteIndex(const IndexName& name, std::string_view bytes);
  void RemoveIndex(const IndexName& name);

  Path PathOf(std::uint32_t number) const;
  /// Note an error and return it.
  Error Failure(std::string_view what, const Path& path, const std::error_code& error);
  Error Damage(std::uint32_t number, std::string_view why);

 private:
  Path PathOf(const IndexName& name) const;

  StoreFolder& m_folder;
  Path m_path;
  std::map<std::uint32_t, std::unique_ptr<OpenedFile>> m_opened;
};

}  // namespace TalVcs::Kit
