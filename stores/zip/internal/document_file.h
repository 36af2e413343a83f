#pragma once

#include <stores/zip/internal/archive.h>
#include <stores/zip/internal/archive_writer.h>
#include <stores/zip/internal/document_state.h>
#include <stores/zip/internal/file.h>
#include <stores/zip/zip_store.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

namespace TalVcs::Kit::Zip {

/// The file of a document: the archive that is there now, and its replacement by another one.
class DocumentFile {
 public:
  using Path = std::filesystem::path;

  static Result<std::unique_ptr<DocumentFile>> Open(const Path& path, const ZipOptions& options);
  DocumentFile(const DocumentFile&) = delete;
  DocumentFile& operator=(const DocumentFile&) = delete;
  ~DocumentFile() = default;

  /// Opens the archive that is there now, unless it is open already. After a failure the former one
  /// stays open.
  Status Refresh();
  /// The archive that is open.
  const Archive& Current() const noexcept { return *m_archive; }
  /// Returns the branches and values of the archive that is open. They are read once.
  Result<const DocumentState*> State();

  /// Keeps other programs from replacing the archive as long as the result lives, and opens the
  /// archive that is there now.
  Result<File> Lock();
  /// Fails with `Denied` if the options allow no change.
  Status CheckOptions() const;

  /// Writes an archive by `fill` and puts it in the place of the one that is locked. A failure
  /// leaves that one, except that `Unknown` means that it is replaced.
  Status Replace(const File& locked, const std::function<Status(ArchiveWriter&)>& fill);

  /// Makes a file without a name for what isn't in the archive yet.
  Result<File> MakeNameless() const;

  const Path& Name() const noexcept { return m_path; }
  const ZipOptions& Options() const noexcept { return m_options; }

 private:
  DocumentFile(Path path, const ZipOptions& options)
      : m_path(std::move(path)), m_options(options) {}

  Status OpenFirst();
  Result<File> LockOnce();
  Status WriteReplacement(const File& locked, const Path& path,
                          const std::function<Status(ArchiveWriter&)>& fill);

  Path m_path;
  ZipOptions m_options;
  std::unique_ptr<Archive> m_archive;
  FileIdentity m_identity;
  std::optional<DocumentState> m_state;
};

}  // namespace TalVcs::Kit::Zip
