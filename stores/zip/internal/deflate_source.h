#pragma once

#include <talvcs/foundation/names.h>
#include <zip.h>

namespace TalVcs::Kit::Zip {

/// Returns the bytes deflated, as libzip copies them into an archive; null if they don't get
/// smaller.
zip_source_t* MakeDeflateSource(const Buffer& bytes);

/// Returns the bytes as they are. The source shares them.
zip_source_t* MakeStoredSource(const Buffer& bytes);

}  // namespace TalVcs::Kit::Zip
