#pragma once

#include <kit/text/result.h>
#include <stores/zip/internal/archive.h>
#include <stores/zip/internal/file.h>

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace TalVcs::Kit::Zip {

/// Writes an archive into an empty file. Entries come in the order in which they are added, with a
/// fixed time and fixed permissions, so that equal entries make equal files.
class ArchiveWriter {
 public:
  /// Writes into `file`, which outlives the writer. `path` is named in errors.
  ArchiveWriter(File& file, std::filesystem::path path);
  ArchiveWriter(const ArchiveWriter&) = delete;
  ArchiveWriter& operator=(const ArchiveWriter&) = delete;
  ~ArchiveWriter() = default;

  /// Adds an entry with these bytes, deflated if that makes it smaller.
  Status Add(const std::string& name, const Buffer& bytes);
  Status Add(const std::string& name, std::string_view bytes);
  /// Adds an entry with the bytes of an entry of another archive, as they are. That archive stays
  /// open until `Finish`.
  Status AddCopy(const Archive& from, std::uint64_t entry);

  /// Writes everything.
  Status Finish();

 private:
  struct Discard {
    void operator()(zip_t* zip) const noexcept { zip_discard(zip); }
  };

  Status AddSource(const std::string& name, zip_source_t* source, bool isStored);
  Error Failure() const;

  std::filesystem::path m_path;
  std::unique_ptr<zip_t, Discard> m_zip;
  // The archives that entries are copied from.
  std::vector<const Archive*> m_sources;
};

}  // namespace TalVcs::Kit::Zip
