#include <talvcs/persistence/blob_io.h>

namespace TalVcs {

IBlobWriter::~IBlobWriter() = default;
IBlobReader::~IBlobReader() = default;

}  // namespace TalVcs
