#pragma once

#include <stores/zip/internal/document_state.h>
#include <stores/zip/internal/file.h>
#include <stores/zip/internal/file_source.h>
#include <zip.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace TalVcs::Kit::Zip {

/// An archive that is open for reading: its directory in memory, its entries read when they are
/// asked for. Nothing that the archive says about itself is trusted.
class Archive {
 public:
  struct ObjectPlace {
    std::string_view digits;  ///< "ab/cdef...", valid as long as the archive.
    std::uint64_t entry = 0;
  };
  struct TextPlace {
    std::string name;  ///< Of the branch or value.
    std::uint64_t entry = 0;
  };

  /// Opens the archive that `file` contains. `path` is named in errors.
  static Result<std::unique_ptr<Archive>> Open(File file, const std::filesystem::path& path,
                                               std::uint64_t mostObjectBytes);
  Archive(const Archive&) = delete;
  Archive& operator=(const Archive&) = delete;
  ~Archive() = default;

  /// Sorted by their digits.
  std::span<const ObjectPlace> Objects() const noexcept { return m_objects; }
  /// Returns null for an object that the archive lacks.
  const ObjectPlace* Find(std::string_view digits) const noexcept;
  /// Returns the size in bytes that the directory has for the object.
  std::uint64_t SizeOf(const ObjectPlace& object) const noexcept;
  Result<Buffer> Read(const ObjectPlace& object) const;

  /// Reads branches and values. If they don't fit their digest, fails with `Damaged`, and the error
  /// has the heads that can be read.
  Result<DocumentState> ReadState() const;

  /// The handle of libzip, from which entries can be copied.
  zip_t* Handle() const noexcept { return m_zip.get(); }
  const std::filesystem::path& Path() const noexcept { return m_path; }
  /// Returns the error of the last read of the file that failed, once.
  std::error_code TakeReadFailure() const noexcept;

 private:
  struct Discard {
    void operator()(zip_t* zip) const noexcept { zip_discard(zip); }
  };
  using ZipPointer = std::unique_ptr<zip_t, Discard>;

  Archive(ZipPointer zip, std::shared_ptr<ReadFile> file, std::filesystem::path path,
          std::uint64_t mostObjectBytes)
      : m_file(std::move(file)),
        m_zip(std::move(zip)),
        m_path(std::move(path)),
        m_mostObjectBytes(mostObjectBytes) {}

  Status ReadDirectory(std::uint64_t sizeBytes);
  Status SortObjects();
  Status CheckReadme();
  Result<Buffer> ReadEntry(std::uint64_t entry) const;
  Status CheckEntry(const zip_stat_t& entry) const;
  Status ReadInto(std::uint64_t entry, std::uint64_t size, Buffer& bytes) const;
  Status ReadHeads(DocumentState& state) const;
  Error Damage(const std::string& reason) const;
  /// Returns the error of a read, which is that of the system if the system failed.
  Error Failure(zip_error_t* error) const;

  std::shared_ptr<ReadFile> m_file;
  ZipPointer m_zip;
  std::filesystem::path m_path;
  std::uint64_t m_mostObjectBytes;
  std::vector<ObjectPlace> m_objects;
  std::vector<TextPlace> m_branches;
  std::vector<TextPlace> m_values;
  std::optional<std::uint64_t> m_readme;
  std::string m_digest;
};

}  // namespace TalVcs::Kit::Zip
