#include <talvcs/objects/id.h>

#include <talvcs/foundation/helpers.h>

namespace TalVcs {

Id::Id(const Buffer& data) : m_text(Helpers::ComputeEncodedSHA256Hash(data)) {}

}  // namespace TalVcs
