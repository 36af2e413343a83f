#pragma once

#include <stores/zip/internal/file.h>
#include <zip.h>

#include <memory>
#include <system_error>

namespace TalVcs::Kit::Zip {

/// A file that an archive reads from, and the error of its last read that failed. libzip calls some
/// of these errors a premature end of the archive.
struct ReadFile {
  File file;
  std::error_code failure = {};
};

/// Returns the bytes of a file as libzip reads them. The source shares the file.
zip_source_t* MakeReadSource(std::shared_ptr<ReadFile> file, std::uint64_t sizeBytes);

/// Returns an empty target for libzip, which writes into `file`. The file outlives the source.
zip_source_t* MakeWriteTarget(File& file);

}  // namespace TalVcs::Kit::Zip
