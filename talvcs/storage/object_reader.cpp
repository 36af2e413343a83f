#include <talvcs/storage/object_reader.h>

namespace TalVcs {

IObjectReader::~IObjectReader() = default;

}  // namespace TalVcs
