#include <kit/store/checksum_store.h>
#include <kit/text.h>

namespace TalVcs::Kit {

ChecksumStore::~ChecksumStore() = default;

Result<Buffer> ChecksumStore::Found(const Id& id, Result<Buffer> packed) {
  if (!packed || Id(*packed) == id) return packed;
  Error error;
  error.code = ErrorCode::Damaged;
  error.subject = ToUtf8(id.View());
  error.message = "the bytes of the object " + error.subject + " don't fit its id";
  return error;
}

}  // namespace TalVcs::Kit
