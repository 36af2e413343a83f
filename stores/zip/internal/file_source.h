#pragma once

#include <stores/zip/internal/file.h>
#include <zip.h>

#include <memory>

namespace TalVcs::Kit::Zip {

/// Returns the bytes of a file as libzip reads them. The source shares the file.
zip_source_t* MakeReadSource(std::shared_ptr<const File> file, std::uint64_t sizeBytes);

/// Returns an empty target for libzip, which writes into `file`. The file outlives the source.
zip_source_t* MakeWriteTarget(File& file);

}  // namespace TalVcs::Kit::Zip
